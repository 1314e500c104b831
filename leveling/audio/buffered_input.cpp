#include "leveling/audio/buffered_input.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "leveling/audio/seeking.h"

namespace quorvane {
namespace {

constexpr std::size_t kBufferBytes = 131072;  // 128 KB

}  // namespace

BufferedInput::BufferedInput(const std::string& path)
    : file_(path, O_RDONLY | O_CLOEXEC), buffer_(kBufferBytes) {
    struct stat facts {};

    if (!file_.is_open() || fstat(file_.get(), &facts) != 0) {
        throw std::runtime_error(std::strerror(errno));
    }
    size_ = facts.st_size;
}

SF_VIRTUAL_IO BufferedInput::calls() {
    return {size, seek, read, write, tell};
}

sf_count_t BufferedInput::size(void* self) {
    return static_cast<BufferedInput*>(self)->size_;
}

sf_count_t BufferedInput::seek(sf_count_t offset, int from, void* self) {
    auto& file = *static_cast<BufferedInput*>(self);
    const sf_count_t place = sought(offset, from, file.at_, file.size_);
    file.at_ = place < 0 ? file.at_ : place;
    return place;
}

sf_count_t BufferedInput::read(void* to, sf_count_t count, void* self) {
    auto& file = *static_cast<BufferedInput*>(self);
    sf_count_t done = 0;
    while (done < count) {
        const bool is_inside = file.at_ >= file.begin_ && file.at_ < file.begin_ + file.filled_;
        if (!is_inside && !file.fill()) {
            break;
        }
        const sf_count_t skipped = file.at_ - file.begin_;
        const sf_count_t here = std::min(count - done, file.filled_ - skipped);
        std::memcpy(static_cast<char*>(to) + done, file.buffer_.data() + skipped,
                    static_cast<std::size_t>(here));
        file.at_ += here;
        done += here;
    }
    return done;
}

sf_count_t BufferedInput::write(const void* /*from*/, sf_count_t /*count*/, void* /*self*/) {
    return 0;
}

sf_count_t BufferedInput::tell(void* self) {
    return static_cast<BufferedInput*>(self)->at_;
}

bool BufferedInput::fill() {
    ssize_t count = 0;
    do {
        count = pread(file_.get(), buffer_.data(), buffer_.size(), at_);
    } while (count < 0 && errno == EINTR);
    begin_ = at_;
    filled_ = std::max<sf_count_t>(count, 0);
    return filled_ > 0;
}

}  // namespace quorvane
