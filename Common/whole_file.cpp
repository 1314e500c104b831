#include "Common/whole_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>

namespace fs = boost::filesystem;

namespace {

fs::filesystem_error failure(const char* what, const std::string& from, const std::string& to) {
    return fs::filesystem_error(what, from, to,
                                boost::system::error_code(errno, boost::system::system_category()));
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

bool sync_to_disk(const fs::path& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY);
    const bool synced = descriptor >= 0 && ::fsync(descriptor) == 0;
    if (descriptor >= 0) {
        ::close(descriptor);
    }
    return synced;
}

}  // namespace

void copy_whole(const std::string& from, const std::string& to) {
    const fs::path target(to);
    Unfinished copy(target.parent_path() /
                    ("." + target.filename().string() + fs::unique_path(".%%%%%%%%").string()));
    fs::copy_file(from, copy.path());
    if (!sync_to_disk(copy.path())) {
        throw failure("cannot write to disk", from, to);
    }
    fs::rename(copy.path(), target);
    copy.finished();
}

void move_whole(const std::string& from, const std::string& to) {
    boost::system::error_code error;
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
