#include "leveling/storage/scratch.h"

#include <fcntl.h>
#include <ftw.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <new>
#include <system_error>

/*
 * A run's temporary files lie in a folder of its own, which it locks. A process that is killed
 * loses its lock: any process that finds a folder of ours without a lock may remove it,
 * and the next run does. No process id is trusted for that, since they are used again.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

constexpr const char* kPrefix = "quorvane-";
constexpr const char* kLock = "lock";
constexpr const char* kNewLock = "lock.new";

/** A real folder of this user; a link of that name could lead anywhere. */
bool is_mine(const fs::path& path) {
    struct stat status {};

    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
           status.st_uid == geteuid();
}

/**
 * Removes a directory in which nothing has been made or removed for an hour, if there is nothing in
 * it. Without a lock it may be a user's folder that only has such a name.
 */
void remove_if_old_and_empty(const fs::path& path) {
    constexpr std::time_t kOld_s = 3600;

    struct stat status {};

    if (lstat(path.c_str(), &status) != 0 || std::time(nullptr) - status.st_mtime <= kOld_s) {
        return;
    }
    std::error_code error;
    for (fs::directory_iterator entry(path, error), end; !error && entry != end;
         entry.increment(error)) {
        if (entry->path().filename() != kNewLock) {
            return;
        }
    }
    unlink((path / kNewLock).c_str());
    rmdir(path.c_str());
}

}  // namespace

bool try_lock(int descriptor) {
    return flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

namespace {

/** Removes what it is shown, but for the tree's root and the lock there. */
int remove_below(const char* path, const struct stat* /*status*/, int kind, struct FTW* place) {
    const bool is_lock = place->level == 1 && std::strcmp(path + place->base, kLock) == 0;
    if (place->level > 0 && !is_lock) {
        kind == FTW_DP ? rmdir(path) : unlink(path);
    }
    return 0;
}

bool remove_once(const std::string& path) {
    constexpr int kMostOpen = 16;
    nftw(path.c_str(), remove_below, kMostOpen, FTW_DEPTH | FTW_PHYS);
    // The lock goes last: who is killed in between leaves a directory that is known by it.
    unlink((path + "/" + kLock).c_str());
    return rmdir(path.c_str()) == 0 || errno == ENOENT;
}

}  // namespace

// With the C library alone: destructors call this, and its functions report a lack of memory
// where those of the standard library end the program.
void remove_tree(const std::string& path) {
    constexpr int kTries = 2;  // what failed may have been of the moment
    for (int i = 0; i < kTries; ++i) {
        try {
            if (remove_once(path)) {
                return;
            }
        } catch (const std::bad_alloc&) {
            continue;
        }
    }
}

// The lock is taken before the file has its name: no other run may find it free and take the
// directory for one that was left behind.
ScratchDirectory::ScratchDirectory(const std::string& folder)
    : directory_(folder.empty() ? PrivateDirectory()
                                : PrivateDirectory(PrivateDirectory::Below{folder})) {
    lock();
}

void ScratchDirectory::lock() {
    try {
        const std::string new_lock = path() + kNewLock;
        lock_ = open(new_lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (lock_ >= 0) {
            try_lock(lock_);  // a file system without locks has no old runs removed either
        }
        if (lock_ < 0 || rename(new_lock.c_str(), (path() + kLock).c_str()) != 0) {
            throw std::system_error(errno, std::generic_category(), path());
        }
    } catch (...) {
        remove();
        throw;
    }
}

ScratchDirectory::~ScratchDirectory() {
    remove();
}

void ScratchDirectory::remove() {
    remove_tree(path());
    if (lock_ >= 0) {
        close(lock_);
    }
}

void remove_stale_scratch_directories(const std::string& folder) {
    std::error_code error;
    const fs::path temporary = folder.empty() ? fs::temp_directory_path(error) : fs::path(folder);
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
            if (errno == ENOENT) {
                remove_if_old_and_empty(path);
            }
            continue;
        }
        if (try_lock(lock)) {
            remove_tree(path.string());
        }
        close(lock);
    }
}

}  // namespace quorvane
