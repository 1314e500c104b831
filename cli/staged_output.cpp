#include "cli/staged_output.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <random>
#include <system_error>
#include <vector>

#include "cli/scratch.h"

namespace cli {
namespace fs = std::filesystem;

namespace {

constexpr size_t kCopyBlock = 1 << 20;

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

fs::path folder_of(const std::string& path) {
    const fs::path folder = fs::path(path).parent_path();
    return folder.empty() ? fs::path(".") : folder;
}

std::string part_prefix(const std::string& destination) {
    return "." + fs::path(destination).filename().string() + ".quorvane-";
}

constexpr const char* kPartEnd = ".part";

// An open file that closes itself. Throws std::system_error when it cannot be opened.
class Descriptor {
  public:
    Descriptor(const std::string& path, int flags)
        : number_(open(path.c_str(), flags | O_CLOEXEC)) {
        if (number_ < 0) fail(path);
    }

    ~Descriptor() { close(number_); }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    operator int() const { return number_; }

  private:
    int number_;
};

std::vector<fs::path> parts(const std::string& destination, const std::string& prefix) {
    std::vector<fs::path> found;
    std::error_code error;
    for (fs::directory_iterator entry(folder_of(destination), error), end; !error && entry != end;
         entry.increment(error)) {
        const fs::path path = entry->path();
        if (path.filename().string().rfind(prefix, 0) == 0 && path.extension() == kPartEnd)
            found.push_back(path);
    }
    return found;
}

void write_all(int file, const char* bytes, size_t count, const std::string& path) {
    while (count > 0) {
        const ssize_t written = write(file, bytes, count);
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail(path);
        bytes += written;
        count -= static_cast<size_t>(written);
    }
}

void sync(int file, const std::string& path) {
    // Some file systems cannot sync; what a full disk has to say comes here on others.
    if (fsync(file) != 0 && errno != EINVAL && errno != ENOTSUP) fail(path);
}

}  // namespace

StagedOutput::StagedOutput(const std::string& destination) : destination_(destination) {
    const fs::path folder = folder_of(destination);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) throw std::system_error(error, folder.string());
    std::random_device random;
    do {
        path_ = (folder / fmt::format("{}{}-{:08x}{}", part_prefix(destination), getpid(), random(),
                                      kPartEnd))
                    .string();
        file_ = open(path_.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    } while (file_ < 0 && errno == EEXIST);
    if (file_ < 0) fail(folder.string());
    try_lock(file_);
}

StagedOutput::~StagedOutput() {
    if (!path_.empty()) unlink(path_.c_str());
    close(file_);
}

void StagedOutput::fill_from(const std::string& from) {
    const Descriptor source(from, O_RDONLY);
    std::vector<char> block(kCopyBlock);
    for (;;) {
        const ssize_t got = read(source, block.data(), block.size());
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) fail(from);
        if (got == 0) break;
        write_all(file_, block.data(), static_cast<size_t>(got), destination_);
    }
    sync(file_, destination_);
}

void StagedOutput::take_time_of(const std::string& other) {
    struct stat status {};

    if (stat(other.c_str(), &status) != 0) fail(other);
#ifdef __APPLE__
    const timespec times[2] = {status.st_atimespec, status.st_mtimespec};
#else
    const timespec times[2] = {status.st_atim, status.st_mtim};
#endif
    if (futimens(file_, times) != 0) fail(destination_);
}

void StagedOutput::commit(bool replace) {
    if (!replace) {
        // A new link fails where a rename would replace.
        if (link(path_.c_str(), destination_.c_str()) == 0) {
            unlink(path_.c_str());
            path_.clear();
            return;
        }
        if (errno == EEXIST || access(destination_.c_str(), F_OK) == 0) {
            errno = EEXIST;
            fail(destination_);
        }
    }
    if (rename(path_.c_str(), destination_.c_str()) != 0) fail(destination_);
    path_.clear();
}

void remove_stale_parts(const std::string& destination) {
    for (const fs::path& part : parts(destination, part_prefix(destination))) {
        const int file = open(part.c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        if (file < 0) continue;
        if (try_lock(file)) unlink(part.c_str());
        close(file);
    }
}

void remove_own_parts(const std::string& destination) {
    const std::string prefix = fmt::format("{}{}-", part_prefix(destination), getpid());
    for (const fs::path& part : parts(destination, prefix)) unlink(part.c_str());
}

void write_whole_text(const std::string& destination, const std::string& text) {
    // A pipe or a device is written to; it cannot be replaced.
    std::error_code ignored;
    const fs::file_status status = fs::status(destination, ignored);
    if (fs::exists(status) && !fs::is_regular_file(status)) {
        write_all(Descriptor(destination, O_WRONLY), text.data(), text.size(), destination);
        return;
    }
    StagedOutput staged(destination);
    const Descriptor file(staged.path(), O_WRONLY);
    write_all(file, text.data(), text.size(), destination);
    sync(file, destination);
    staged.commit(true);
}

}  // namespace cli
