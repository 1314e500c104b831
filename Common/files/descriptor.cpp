#include "Common/files/descriptor.h"

#include <fcntl.h>
#include <unistd.h>

#include <boost/filesystem/path.hpp>
#include <cerrno>
#include <vector>

namespace level_engine {

Descriptor::Descriptor(const std::string& path, int flags, mode_t mode)
    : descriptor_(::open(path.c_str(), flags | O_CLOEXEC, mode)) {}

Descriptor::~Descriptor() {
    if (is_open()) {
        ::close(descriptor_);
    }
}

bool write_all(int descriptor, const char* bytes, std::size_t count) {
    while (count > 0) {
        // A full disk may take a part before it refuses the rest; a signal may come in between.
        const ssize_t written = ::write(descriptor, bytes, count);
        if (written < 0 && errno != EINTR) {
            return false;
        }
        if (written > 0) {
            bytes += written;
            count -= static_cast<std::size_t>(written);
        }
    }
    return true;
}

bool copy_all(int from, int to) {
    // Bytes; large enough that the calls do not count.
    constexpr std::size_t kBlockBytes = 1 << 20;
    std::vector<char> block(kBlockBytes);
    for (;;) {
        const ssize_t count = ::read(from, block.data(), block.size());
        if (count == 0) {
            return true;
        }
        if (count < 0 && errno != EINTR) {
            return false;
        }
        if (count > 0 && !write_all(to, block.data(), static_cast<std::size_t>(count))) {
            return false;
        }
    }
}

bool sync_to_disk(int descriptor) {
    return ::fsync(descriptor) == 0 || errno == EINVAL || errno == ENOTSUP;
}

void start_sync(int descriptor) {
#ifdef __linux__
    // Errors are ignored here: sync_to_disk reports them.
    (void)::sync_file_range(descriptor, 0, 0, SYNC_FILE_RANGE_WRITE);
#else
    (void)descriptor;
#endif
}

bool sync_folder_of(const std::string& path) {
    const std::string parent = boost::filesystem::path(path).parent_path().string();
    const Descriptor folder(parent.empty() ? "." : parent, O_RDONLY | O_DIRECTORY);
    return !folder.is_open() || sync_to_disk(folder.get());
}

}  // namespace level_engine
