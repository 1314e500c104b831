#include "app/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <vector>

namespace {

constexpr std::size_t kBlockBytes = 1 << 20;

[[noreturn]] void fail(const std::string& path, int code = errno) {
    throw std::system_error(code, std::generic_category(), path);
}

class Descriptor {
  public:
    Descriptor(int descriptor, std::string path)
        : descriptor_(descriptor)
        , path_(std::move(path)) {
        if (descriptor_ < 0) {
            fail(path_);
        }
    }

    ~Descriptor() { close(descriptor_); }

    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    struct stat status() const {
        struct stat status {};
        if (fstat(descriptor_, &status) != 0) {
            fail(path_);
        }
        return status;
    }

    std::size_t read(std::vector<char>& block) const {
        for (;;) {
            const ssize_t count = ::read(descriptor_, block.data(), block.size());
            if (count >= 0) {
                return static_cast<std::size_t>(count);
            }
            if (errno != EINTR) {
                fail(path_);
            }
        }
    }

    void write(const char* data, std::size_t size) const {
        while (size > 0) {
            const ssize_t count = ::write(descriptor_, data, size);
            if (count < 0 && errno != EINTR) {
                fail(path_);
            }
            if (count > 0) {
                data += count;
                size -= static_cast<std::size_t>(count);
            }
        }
    }

    void setMode(mode_t mode) const {
        if (fchmod(descriptor_, mode) != 0 && errno != EPERM && errno != ENOTSUP) {
            fail(path_);
        }
    }

    void sync() const {
        if (fsync(descriptor_) != 0 && errno != EINVAL) {
            fail(path_);
        }
    }

  private:
    int descriptor_;
    std::string path_;
};

void copy(const Descriptor& from, const Descriptor& to, const std::atomic<bool>& stop) {
    std::vector<char> block(kBlockBytes);
    while (const std::size_t count = from.read(block)) {
        if (stop) {
            throw std::system_error(ECANCELED, std::generic_category());
        }
        to.write(block.data(), count);
    }
    to.setMode(from.status().st_mode & 0777);
    to.sync();
}

}  // namespace

std::string stageBeside(const std::string& source,
                        const std::string& destination,
                        const std::atomic<bool>& stop) {
    const std::string folder = destination.substr(0, destination.rfind('/') + 1);
    const Descriptor from(open(source.c_str(), O_RDONLY | O_CLOEXEC), source);
    const Descriptor place(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC), folder);
    if (from.status().st_dev == place.status().st_dev) {
        from.sync();
        return source;
    }
    std::string staged = folder + ".quorvane-XXXXXX";
    const Descriptor to(mkostemp(staged.data(), O_CLOEXEC), folder);
    try {
        copy(from, to, stop);
    } catch (const std::system_error&) {
        unlink(staged.c_str());
        throw;
    }
    return staged;
}
