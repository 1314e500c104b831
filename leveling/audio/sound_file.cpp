#include "leveling/audio/sound_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "Common/files/descriptor.h"
#include "leveling/audio/buffered_input.h"
#include "leveling/facts/no_room.h"

namespace quorvane {
namespace {

SndfileHandle checked(SndfileHandle file) {
    // A file whose kind the library could not query counts as a pipe, and opens. A null handle
    // is one without memory for it, too.
    const int error = errno;
    if (!file.rawHandle() || file.error() == SF_ERR_SYSTEM) {
        fail_write(error, sf_strerror(file.rawHandle()));
    }
    return file;
}

}  // namespace

SndfileHandle open_to_read(const std::string& path) {
    errno = 0;
    return checked(SndfileHandle(path));
}

SndfileHandle open_to_read(BufferedInput& input) {
    return open_virtual(BufferedInput::calls(), &input);
}

SndfileHandle open_virtual(SF_VIRTUAL_IO functions, void* data) {
    errno = 0;
    return checked(SndfileHandle(functions, data));
}

SF_INFO info_of(const SndfileHandle& file) {
    SF_INFO info{};
    info.frames = file.frames();
    info.samplerate = file.samplerate();
    info.channels = file.channels();
    info.format = file.format();
    return info;
}

SndfileHandle open_to_write(const std::string& path, int format, int channels, int sample_rate_hz) {
    errno = 0;
    return checked(SndfileHandle(path, SFM_WRITE, format, channels, sample_rate_hz));
}

SndfileHandle open_behind(const std::string& path, std::uint64_t bytes) {
    const Descriptor file(path, O_RDONLY | O_CLOEXEC);
    if (!file.is_open() || lseek(file.get(), static_cast<off_t>(bytes), SEEK_SET) == -1) {
        throw std::runtime_error(std::strerror(errno));
    }
    constexpr bool kCloses = true;
    return checked(SndfileHandle(fcntl(file.get(), F_DUPFD_CLOEXEC, 0), kCloses));
}

void fail_read(const SoundHandle& handle, const std::string& /*path*/) {
    throw std::runtime_error(sf_strerror(handle.get()));
}

}  // namespace quorvane
