#include "Common/files/whole_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>

#include "Common/files/descriptor.h"
#include "Common/files/part_name.h"
#include "Common/reporting/write_error.h"

namespace fs = boost::filesystem;

namespace level_engine {

namespace {

fs::filesystem_error failure(const char* what, const std::string& from, const std::string& to) {
    const int error = errno;
    reporting::note_write_error(error);
    return fs::filesystem_error(what, from, to,
                                boost::system::error_code(error, boost::system::system_category()));
}

/** Removes a file that is not yet finished when an error cuts its making short. */
class Unfinished {
  public:
    explicit Unfinished(fs::path path) : path_(std::move(path)) {}

    Unfinished(const Unfinished&) = delete;
    Unfinished& operator=(const Unfinished&) = delete;

    ~Unfinished() {
        if (!path_.empty()) {
            boost::system::error_code ignored;
            fs::remove(path_, ignored);
        }
    }

    const fs::path& path() const { return path_; }

    void finished() { path_.clear(); }

  private:
    fs::path path_;
};

/**
 * Copies a file's bytes and permissions to a new file and has them written to disk. Boost 1.74's
 * copy_file fails between file systems on kernels since 5.19, and leaves the data in the cache.
 */
bool copy_to_disk(const std::string& from, const std::string& to) {
    const Descriptor input(from, O_RDONLY);
    struct stat status = {};
    if (!input.is_open() || ::fstat(input.get(), &status) != 0) {
        return false;
    }
    // O_EXCL: does not write through a file or link that another program put there first.
    const Descriptor output(to, O_WRONLY | O_CREAT | O_EXCL, status.st_mode & 0777);
    if (!output.is_open()) {
        return false;
    }
    ::flock(output.get(), LOCK_EX | LOCK_NB);  // for as long as it is not whole
    return copy_all(input.get(), output.get()) && sync_to_disk(output.get());
}

}  // namespace

void copy_whole(const std::string& from, const std::string& to) {
    const fs::path target(to);
    Unfinished copy(part_path(to));
    if (!copy_to_disk(from, copy.path().string())) {
        throw failure("cannot copy", from, to);
    }
    fs::rename(copy.path(), target);
    copy.finished();
    if (!sync_folder_of(to)) {
        throw failure("cannot copy", from, to);
    }
}

void move_whole(const std::string& from, const std::string& to) {
    boost::system::error_code error;
    // A rename is atomic within one file system only. Across two, copy to a temporary name beside
    // the target, sync the copy and rename it.
    fs::rename(from, to, error);
    if (!error) {
        return;
    }
    if (error != boost::system::errc::cross_device_link) {
        throw fs::filesystem_error("cannot move", from, to, error);
    }
    copy_whole(from, to);
    fs::remove(from);
}

}  // namespace level_engine
