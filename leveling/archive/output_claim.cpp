#include "leveling/archive/output_claim.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <stdexcept>
#include <system_error>

#include "Common/files/descriptor.h"
#include "leveling/archive/content_hash.h"
#include "leveling/archive/record.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

// Locks that belong to the open file, where the system has them: they end with the process, and
// another descriptor that is closed does not end them. Servers of network file systems see both.
#ifdef F_OFD_SETLK
constexpr int kTryLock = F_OFD_SETLK;
constexpr int kWaitLock = F_OFD_SETLKW;
#else
constexpr int kTryLock = F_SETLK;
constexpr int kWaitLock = F_SETLKW;
#endif

// The appending locks the first byte; outputs lock bytes far behind the end of any file.
constexpr off_t kAppendByte = 0;
// Each output has a byte of the record's file, far behind its end, that stands for it: a lock on
// that byte claims the output.
constexpr off_t kOutputBytes = off_t{1} << 62;

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

off_t byte_of(const std::string& output) {
    const std::string name = fs::path(output).filename().string();
    return kOutputBytes + static_cast<off_t>(name_hash(name) & (kOutputBytes - 1));
}

/** Taken: by another process. Impossible: the file system has no locks. */
enum class Locked { Yes, Taken, Impossible };

/** length 0: to the end of all bytes. */
Locked lock_bytes(int file, off_t start, off_t length, int how, short type = F_WRLCK) {
    struct flock range {};

    range.l_type = type;
    range.l_whence = SEEK_SET;
    range.l_start = start;
    range.l_len = length;
    while (fcntl(file, how, &range) != 0) {
        if (errno == EINTR) {
            continue;
        }
        return errno == EACCES || errno == EAGAIN ? Locked::Taken : Locked::Impossible;
    }
    return Locked::Yes;
}

/** Whether the path still leads to the open file: another process may have removed it. */
bool is_still_at(int file, const std::string& path) {
    struct stat opened {};

    struct stat named {};

    return fstat(file, &opened) == 0 && stat(path.c_str(), &named) == 0 &&
           opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

}  // namespace

OutputClaim::~OutputClaim() {
    release();
}

bool OutputClaim::take(const std::string& output, const std::string& new_folder, WhenTaken when) {
    const std::lock_guard<std::mutex> lock(mutex_);
    const std::string path = record_path(output);
    std::error_code error;
    fs::create_directories(fs::path(path).parent_path(), error);
    if (error) {
        throw std::system_error(error, fs::path(path).parent_path().string());
    }
    new_folder_ = new_folder;
    path_ = path;
    for (;;) {
        if (const std::string problem = record_problem(path); !problem.empty()) {
            throw std::runtime_error(problem);
        }
        file_ = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (file_ < 0) {
            fail(path);
        }
        const Locked locked =
            lock_bytes(file_, byte_of(output), 1, when == WhenTaken::Wait ? kWaitLock : kTryLock);
        if (locked == Locked::Taken) {
            close_file();
            return false;
        }
        // An empty record file may have been removed while this one waited.
        if (locked == Locked::Impossible || is_still_at(file_, path)) {
            return true;
        }
        close_file();
    }
}

// One write of one line, so that lines of several processes do not mix.
void OutputClaim::record(const std::string& line) {
    const std::lock_guard<std::mutex> lock(mutex_);
    lock_bytes(file_, kAppendByte, 1, kWaitLock);
    // What a full disk or a killed writer left without an end must not spoil this line too.
    const off_t end = lseek(file_, 0, SEEK_END);
    char last = '\n';
    const bool torn = end > 0 && pread(file_, &last, 1, end - 1) == 1 && last != '\n';
    const std::string text = (torn ? "\n" : "") + line;
    const bool written = write_all(file_, text.data(), text.size()) &&
                         (fsync(file_) == 0 || errno == EINVAL || errno == ENOTSUP);
    const int error = errno;
    lock_bytes(file_, kAppendByte, 1, kTryLock, F_UNLCK);
    if (!written) {
        errno = error;
        fail(path_);
    }
}

void OutputClaim::release() {
    const std::unique_lock<std::mutex> lock(mutex_, std::try_to_lock);
    if (lock.owns_lock() && file_ >= 0) {
        remove_if_empty();
        close_file();
    }
}

void OutputClaim::close_file() {
    close(file_);
    file_ = -1;
}

// A record that was only made for its lock is not left behind.
void OutputClaim::remove_if_empty() {
    struct stat status {};

    // Only a process that locks every byte may remove it: then no other one works in the folder.
    if (fstat(file_, &status) != 0 || status.st_size != 0 ||
        lock_bytes(file_, 0, 0, kTryLock) != Locked::Yes || !is_still_at(file_, path_) ||
        fstat(file_, &status) != 0 || status.st_size != 0) {
        return;
    }
    unlink(path_.c_str());
    // From the inside out, as far as they are empty.
    fs::path folder = fs::path(path_).parent_path();
    while (!new_folder_.empty() && rmdir(folder.c_str()) == 0 && folder != fs::path(new_folder_)) {
        folder = folder.parent_path();
    }
}

}  // namespace quorvane
