#include "leveling/storage/run_files.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <boost/algorithm/string/predicate.hpp>
#include <filesystem>
#include <system_error>

namespace quorvane {
namespace fs = std::filesystem;

namespace {

/** Follows a link that leads to no file yet: a file that is opened by its name is made there. */
fs::path link_target(fs::path path) {
    constexpr int kMostLinks = 40;  // as many as the system follows
    std::error_code error;
    for (int i = 0; i < kMostLinks && fs::is_symlink(path, error); ++i) {
        const fs::path target = fs::read_symlink(path, error);
        if (error) {
            break;
        }
        path = path.parent_path() / target;  // an absolute target replaces the folder
    }
    return path;
}

/** Whether the run leaves the file's bytes as they are. */
bool keeps(FileUse use) {
    return use == FileUse::Read || use == FileUse::Skipped;
}

/** Whether one file may be in both uses. */
bool may_share(FileUse one, FileUse other) {
    const bool one_is_stream = one == FileUse::Stream;
    const bool other_is_stream = other == FileUse::Stream;
    if (one_is_stream || other_is_stream) {
        // The lines of a log may go where the lines on the screen go.
        const FileUse second = one_is_stream ? other : one;
        return second == FileUse::Stream || second == FileUse::Written;
    }
    const bool skips = one == FileUse::Skipped || other == FileUse::Skipped;
    const bool writes = one == FileUse::Written || other == FileUse::Written;
    return (keeps(one) && keeps(other)) || (skips && !writes);
}

std::string described(const char* name, const std::string& path) {
    return path.empty() ? name : fmt::format("{} {}", name, path);
}

}  // namespace

std::string resolved_path(const std::string& path) {
    std::error_code error;
    const fs::path absolute = fs::absolute(link_target(path), error);
    const fs::path result = fs::weakly_canonical(absolute, error);
    return (error ? absolute.lexically_normal() : result).string();
}

std::string PathResolver::resolved(const std::string& path) {
    std::error_code error;
    return fs::is_symlink(path, error) ? resolved_path(path) : placed(path);
}

std::string PathResolver::placed(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") {
        return resolved_path(path);
    }
    const auto [known, is_new] = folders_.emplace(folder, "");
    if (is_new) {
        known->second = (fs::path(resolved_path(folder)) / "").string();
    }
    return known->second + name;
}

void RunFiles::add(FileUse use, const char* name, const std::string& path) {
    struct stat status {};

    const Entry entry{use, name, &path};
    const bool exists = stat(path.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        return;
    }
    refuse_page(entry);
    if (exists && S_ISREG(status.st_mode)) {
        add(entry, {status.st_dev, status.st_ino});
    }
    // A file that exists and stays as it is has been compared by now.
    if (exists && keeps(use)) {
        return;
    }
    const auto [other, is_new] = by_place_.emplace(resolver_.resolved(path), entry);
    if (!is_new && !may_share(use, other->second.use)) {
        clash(entry, other->second);
    }
}

void RunFiles::check_read(const char* name, const std::string& path) {
    struct stat status {};

    const Entry entry{FileUse::Read, name, &path};
    const bool exists = stat(path.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
        return;
    }
    refuse_page(entry);
    const Entry* other = nullptr;
    if (exists) {
        const auto found = by_identity_.find({status.st_dev, status.st_ino});
        other = found == by_identity_.end() ? nullptr : &found->second;
    } else {
        const auto found = by_place_.find(resolver_.resolved(path));
        other = found == by_place_.end() ? nullptr : &found->second;
    }
    if (other && !may_share(entry.use, other->use)) {
        clash(entry, *other);
    }
}

void RunFiles::add(const Entry& entry, const Identity& identity) {
    const auto [other, is_new] = by_identity_.emplace(identity, entry);
    if (is_new) {
        return;
    }
    const bool outputs = entry.use == FileUse::Output && other->second.use == FileUse::Output;
    if (!outputs && !may_share(entry.use, other->second.use)) {
        clash(entry, other->second);
    }
}

void RunFiles::clash(const Entry& one, const Entry& other) {
    // The sentence begins with what the user can change.
    const bool begins_with_other =
        keeps(one.use) || (other.use == FileUse::Written && one.use != FileUse::Written);
    const Entry& written = begins_with_other ? other : one;
    const Entry& second = begins_with_other ? one : other;
    throw FileClash(fmt::format("{} is the same file as {}; {}",
                                described(written.name, *written.path),
                                described(second.name, *second.path),
                                keeps(second.use) ? "what a run reads is never written to"
                                                  : "each needs a file of its own"));
}

void RunFiles::add_page_folder(const char* name, const std::string& path) {
    page_folder_name_ = name;
    page_folder_ = resolved_path(path);
}

void RunFiles::refuse_page(const Entry& entry) {
    if (!page_folder_name_ || !boost::algorithm::iends_with(*entry.path, ".html")) {
        return;
    }
    if (fs::path(resolver_.placed(*entry.path)).parent_path() == page_folder_) {
        throw FileClash(
            fmt::format("{} would write its pages where {} is; name another folder for {}",
                        page_folder_name_, described(entry.name, *entry.path), page_folder_name_));
    }
}

void RunFiles::add_stream(const char* name, int descriptor) {
    static const std::string kNoPath;

    struct stat status {};

    if (fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode)) {
        add({FileUse::Stream, name, &kNoPath}, {status.st_dev, status.st_ino});
    }
}

}  // namespace quorvane
