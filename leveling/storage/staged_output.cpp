#include "leveling/storage/staged_output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __APPLE__
#include <copyfile.h>
#else
#include <sys/xattr.h>
#endif

#include <boost/algorithm/string/predicate.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "Common/files/descriptor.h"
#include "Common/files/part_name.h"
#include "leveling/storage/scratch.h"

/*
 * An output is written under a hidden name in the folder where it will stand, since only within one
 * file system a name is given in one stroke. It is locked from its first byte to its last: a part
 * without a lock was left by a run that was killed, and the next run for the same output
 * deletes it. Its content is synced before it gets its name, so that after a power cut the name
 * leads to the old file or to the whole new one.
 *
 * Where an existing output has to stay, link() gives the name, which fails when it is taken;
 * rename() would replace it. File systems without links fall back to a look and a rename.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** With the reason of the call that failed last. */
[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

/** The current folder for a bare name. */
fs::path folder_of(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

/** The hidden files of unfinished outputs in a folder; none where it cannot be read. */
std::vector<fs::path> parts(const fs::path& folder, const std::string& prefix) {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        const fs::path path = entry->path();
        if (path.filename().string().rfind(prefix, 0) == 0 && path.extension() == kPartEnd) {
            found.push_back(path);
        }
    }
    return found;
}

/**
 * Removes the parts in a folder that no living process writes, of those targets whose part_prefix
 * is wanted.
 */
template <class Callback>
void sweep(const fs::path& folder, const Callback& wanted) {
    for (const fs::path& part : parts(folder, ".")) {
        const std::string name = part.filename().string();
        const std::size_t word = name.rfind(kPartWord);
        if (word == std::string::npos || !wanted(name.substr(0, word + std::strlen(kPartWord)))) {
            continue;
        }
        // The name may have been given to a link or a pipe: neither is followed or waited for.
        const int file = open(part.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK);
        if (file < 0) {
            continue;
        }
        // Its writer would hold the lock.
        if (try_lock(file)) {
            unlink(part.c_str());
        }
        close(file);
    }
}

/** What the file systems on both sides allow; the rest is left out. */
void copy_attributes(int from, int to) {
#ifdef __APPLE__
    fcopyfile(from, to, nullptr, COPYFILE_ACL | COPYFILE_XATTR);
#else
    // The first call only gives the size of the list; each name in it ends with a 0 byte.
    const ssize_t room = flistxattr(from, nullptr, 0);
    std::string names(room > 0 ? static_cast<std::size_t>(room) : 0, '\0');
    const ssize_t length = flistxattr(from, &names[0], names.size());
    names.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
    for (std::size_t at = 0; at < names.size();) {
        const std::string name = names.c_str() + at;
        at += name.size() + 1;
        // What a user or the sharing of a folder has set. Others, such as file capabilities, are
        // not for a new file.
        if (name.rfind("user.", 0) != 0 && name != "system.posix_acl_access") {
            continue;
        }
        const ssize_t bytes = fgetxattr(from, name.c_str(), nullptr, 0);
        std::vector<char> value(bytes > 0 ? static_cast<std::size_t>(bytes) : 0);
        if (bytes >= 0 && fgetxattr(from, name.c_str(), value.data(), value.size()) == bytes) {
            // What the other file system refuses is left out.
            (void)fsetxattr(to, name.c_str(), value.data(), value.size(), 0);
        }
    }
#endif
}

/** Throws std::system_error with the reason. */
void require_on_disk(int file, const std::string& path) {
    if (!sync_to_disk(file)) {
        fail(path);
    }
}

/** After this the new name survives a power cut. Throws std::system_error. */
void require_name_on_disk(const std::string& path) {
    if (!sync_folder_of(path)) {
        fail(path);
    }
}

}  // namespace

OutputPart::OutputPart(const std::string& destination, const std::string& part)
    : destination_(destination),
      path_(part),
      // The part exists already; a link that took its place is refused.
      file_(open(part.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW)) {
    if (file_ < 0) {
        fail(destination_);
    }
}

OutputPart::~OutputPart() {
    if (file_ >= 0) {
        close(file_);
    }
}

StagedOutput::StagedOutput(const std::string& destination) : OutputPart(destination) {
    const fs::path folder = folder_of(destination);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
        throw std::system_error(error, folder.string());
    }
    do {
        path_ = part_path(destination);
        // 0666 without the bits of the user's mask, as for any new file.
        file_ = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        // The name is taken: try the next one.
    } while (file_ < 0 && errno == EEXIST);
    if (file_ < 0) {
        fail(folder.string());
    }
    // A file system without locks is used all the same.
    try_lock(file_);
}

StagedOutput::~StagedOutput() {
    // Not committed: an error, or nothing to write.
    if (!path_.empty()) {
        unlink(path_.c_str());
    }
}

bool StagedOutput::is_in_place() const {
    struct stat opened {};

    struct stat named {};

    // One inode with one name: the file was neither moved nor linked elsewhere.
    return fstat(file_, &opened) == 0 && lstat(path_.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino && opened.st_nlink == 1;
}

void OutputPart::clear() {
    if (ftruncate(file_, 0) != 0 || lseek(file_, 0, SEEK_SET) != 0) {
        fail(destination_);
    }
}

void OutputPart::fill_from(const std::string& from) {
    const Descriptor source(from, O_RDONLY);
    if (!source.is_open()) {
        fail(from);
    }
    clear();
    if (!copy_all(source.get(), file_)) {
        fail(destination_);
    }
}

void StagedOutput::keep_private() {
    // A file system without permissions, a FAT stick's, may refuse.
    (void)!fchmod(file_, S_IRUSR | S_IWUSR);
}

void OutputPart::start_sync() const {
    ::start_sync(file_);
}

void OutputPart::sync() {
    require_on_disk(file_, destination_);
}

void StagedOutput::take_protection_of(const std::string& other) {
    const Descriptor source(other, O_RDONLY);

    struct stat status {};

    if (!source.is_open() || fstat(source.get(), &status) != 0) {
        fail(other);
    }
    // A group that this user is not in cannot be given.
    // Where the group cannot be set, the file may have it already.
    const bool same_group =
        fchown(file_, static_cast<uid_t>(-1), status.st_gid) == 0 || status.st_gid == getegid();
    copy_attributes(source.get(), file_);
    // What the group may do is meant for that group.
    const mode_t mode = status.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
    if (fchmod(file_, same_group ? mode : mode & ~static_cast<mode_t>(S_IRWXG)) != 0) {
        fail(destination_);
    }
}

void StagedOutput::take_time_of(const std::string& other) {
    struct stat status {};

    if (stat(other.c_str(), &status) != 0) {
        fail(other);
    }
#ifdef __APPLE__
    const timespec times[2] = {status.st_atimespec, status.st_mtimespec};
#else
    const timespec times[2] = {status.st_atim, status.st_mtim};
#endif
    if (futimens(file_, times) != 0) {
        fail(destination_);
    }
}

void StagedOutput::commit(Existing existing) {
    if (existing == Existing::Keep) {
        // A new link fails where a rename would replace.
        if (link(path_.c_str(), destination_.c_str()) == 0) {
            unlink(path_.c_str());
            path_.clear();
            require_name_on_disk(destination_);
            return;
        }
        // The name is taken. Any other error means a file system without links.
        if (errno == EEXIST || access(destination_.c_str(), F_OK) == 0) {
            errno = EEXIST;
            fail(destination_);
        }
    }
    if (rename(path_.c_str(), destination_.c_str()) != 0) {
        fail(destination_);
    }
    // The destructor has nothing to remove any more.
    path_.clear();
    require_name_on_disk(destination_);
}

void remove_stale_parts(const std::string& destination) {
    remove_stale_parts(folder_of(destination).string(),
                       {fs::path(destination).filename().string()});
}

void remove_stale_parts(const std::string& folder, const std::set<std::string>& outputs) {
    std::set<std::string> prefixes;
    for (const std::string& output : outputs) {
        prefixes.insert(part_prefix(output));
    }
    // ".talk-leveled.wav" and what follows the part's word: only outputs of this run are swept.
    sweep(folder, [&](const std::string& prefix) { return prefixes.count(prefix) != 0; });
}

void remove_stale_parts_ending(const std::string& folder, const std::string& end) {
    sweep(folder, [&](const std::string& prefix) {
        return boost::algorithm::ends_with(prefix, end + kPartWord);
    });
}

void remove_own_parts(const std::string& destination) {
    // Parts bear the process id, which tells those of this process from its neighbours'.
    const std::string prefix = fmt::format("{}{}-", part_prefix(destination), getpid());
    for (const fs::path& part : parts(folder_of(destination), prefix)) {
        unlink(part.c_str());
    }
}

StagedText::StagedText(const std::string& destination) : destination_(destination) {
    // A pipe or a device is written to; it cannot be replaced.
    std::error_code ignored;
    const fs::file_status status = fs::status(destination, ignored);
    if (!fs::exists(status) || fs::is_regular_file(status)) {
        staged_ = std::make_unique<StagedOutput>(destination);
    }
    file_ =
        std::make_unique<Descriptor>(staged_ ? staged_->path() : destination, O_WRONLY | O_CLOEXEC);
    if (!file_->is_open()) {
        fail(destination);
    }
}

StagedText::~StagedText() = default;

void StagedText::add(const std::string& text) {
    // Short lines are collected, so that not each of them costs a call.
    constexpr std::size_t kBlockBytes = 1 << 16;
    pending_ += text;
    if (pending_.size() >= kBlockBytes) {
        flush();
    }
}

void StagedText::flush() {
    if (!write_all(file_->get(), pending_.data(), pending_.size())) {
        fail(destination_);
    }
    pending_.clear();
}

void StagedText::commit() {
    flush();
    require_on_disk(file_->get(), destination_);
    if (staged_) {
        staged_->commit(Existing::Replace);
    }
}

void write_whole_text(const std::string& destination, const std::string& text) {
    StagedText file(destination);
    file.add(text);
    file.commit();
}

}  // namespace quorvane
