#include "cli/storage/scratch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <system_error>

namespace cli {
namespace fs = std::filesystem;

namespace {

constexpr const char* kPrefix = "quorvane-";
constexpr const char* kLock = "lock";
constexpr const char* kNewLock = "lock.new";

bool is_mine(const fs::path& path) {
    struct stat status {};

    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid();
}

/** Nothing has been made or removed in it for an hour. */
bool is_old(const fs::path& path) {
    constexpr std::time_t kOld_s = 3600;

    struct stat status {};

    return lstat(path.c_str(), &status) == 0 && std::time(nullptr) - status.st_mtime > kOld_s;
}

}  // namespace

bool try_lock(int descriptor) {
    return flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

void remove_tree(const std::string& path) {
    std::error_code ignored;
    if (fs::remove_all(path, ignored) == static_cast<std::uintmax_t>(-1)) {
        fs::remove_all(path, ignored);  // what failed may have been of the moment
    }
}

// The lock is taken before the file has its name: no other run may find it free and take the
// directory for one that was left behind.
ScratchDirectory::ScratchDirectory()
    : lock_(open((path() + kNewLock).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    if (lock_ >= 0) {
        try_lock(lock_);  // a file system without locks has no old runs removed either
    }
    if (lock_ < 0 || rename((path() + kNewLock).c_str(), (path() + kLock).c_str()) != 0) {
        throw std::system_error(errno, std::generic_category(), path());
    }
}

ScratchDirectory::~ScratchDirectory() {
    close(lock_);
}

void remove_stale_scratch_directories() {
    std::error_code error;
    const fs::path temporary = fs::temp_directory_path(error);
    if (error) {
        return;
    }
    for (fs::directory_iterator entry(temporary, error), end; !error && entry != end;
         entry.increment(error)) {
        const fs::path path = entry->path();
        if (path.filename().string().rfind(kPrefix, 0) != 0 || !is_mine(path)) {
            continue;
        }
        // Without a lock file the directory is just being made or removed, or who did that was
        // killed meanwhile.
        const int lock = open((path / kLock).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW);
        if (lock < 0) {
            if (errno == ENOENT && is_old(path)) {
                remove_tree(path.string());
            }
            continue;
        }
        if (try_lock(lock)) {
            remove_tree(path.string());
        }
        close(lock);
    }
}

}  // namespace cli
