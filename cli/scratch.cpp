#include "cli/scratch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace cli {
namespace fs = std::filesystem;

namespace {

constexpr const char* kPrefix = "quorvane-run-";
constexpr const char* kLock = "lock";

bool is_mine(const fs::path& path) {
    struct stat status {};

    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid();
}

}  // namespace

bool try_lock(int descriptor) {
    return flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

void remove_tree(const std::string& path) {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

ScratchDirectory::ScratchDirectory() {
    std::string name = (fs::temp_directory_path() / (std::string(kPrefix) + "XXXXXX")).string();
    if (!mkdtemp(&name[0])) throw std::system_error(errno, std::generic_category(), name);
    path_ = name;
    lock_ = open((path_ + "/" + kLock).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (lock_ < 0) {
        const int error = errno;
        remove_tree(path_);
        throw std::system_error(error, std::generic_category(), path_);
    }
    try_lock(lock_);
}

ScratchDirectory::~ScratchDirectory() {
    remove_tree(path_);
    close(lock_);
}

void remove_stale_scratch_directories() {
    std::error_code error;
    const fs::path temporary = fs::temp_directory_path(error);
    if (error) return;
    for (fs::directory_iterator entry(temporary, error), end; !error && entry != end;
         entry.increment(error)) {
        const fs::path path = entry->path();
        if (path.filename().string().rfind(kPrefix, 0) != 0 || !is_mine(path)) continue;
        // Without a lock file the directory is just being made by another run.
        const int lock = open((path / kLock).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        if (lock < 0) continue;
        if (try_lock(lock)) remove_tree(path.string());
        close(lock);
    }
}

}  // namespace cli
