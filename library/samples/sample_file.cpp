#include "library/samples/sample_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

#include "leveling/audio/sound_file.h"

namespace quorvane {
namespace {

// "RIFF" size "WAVE", a chunk of 28 bytes that is "ds64" in RF64 and "JUNK" else, "fmt ", "data".
constexpr std::size_t kSizesBytes = 28;
constexpr std::size_t kFormatBytes = 16;
constexpr std::size_t kHeaderBytes = 12 + 8 + kSizesBytes + 8 + kFormatBytes + 8;
constexpr std::uint32_t kUnknownSize = 0xFFFFFFFF;
constexpr std::uint16_t kPcm = 1;
constexpr std::uint16_t kFloat = 3;

/** Numbers with the lowest byte first, one after the other. */
class Header {
  public:
    Header& id(const char* text) {
        bytes_.append(text, 4);
        return *this;
    }

    Header& number(std::uint64_t value, int bytes) {
        for (int i = 0; i < bytes; ++i) {
            bytes_.push_back(static_cast<char>(value >> (8 * i) & 0xFF));
        }
        return *this;
    }

    const std::string& bytes() const { return bytes_; }

  private:
    std::string bytes_;
};

[[noreturn]] void fail_with_errno() {
    throw std::system_error(errno, std::generic_category());
}

}  // namespace

std::string wav_header(const SampleForm& form, std::uint64_t data_bytes) {
    const std::uint64_t riff_bytes = kHeaderBytes - 8 + data_bytes + data_bytes % 2;
    const bool is_large = riff_bytes >= kUnknownSize;
    const bool is_float = form.type == QUORVANE_FLOAT32 || form.type == QUORVANE_FLOAT64;
    const std::uint64_t frame_bytes = form.frame_bytes();
    const auto rate_hz = static_cast<std::uint64_t>(form.sample_rate_hz);
    Header header;
    header.id(is_large ? "RF64" : "RIFF").number(is_large ? kUnknownSize : riff_bytes, 4);
    header.id("WAVE").id(is_large ? "ds64" : "JUNK").number(kSizesBytes, 4);
    if (is_large) {
        header.number(riff_bytes, 8).number(data_bytes, 8).number(data_bytes / frame_bytes, 8);
    } else {
        header.number(0, 8).number(0, 8).number(0, 8);
    }
    header.number(0, 4).id("fmt ").number(kFormatBytes, 4);
    header.number(is_float ? kFloat : kPcm, 2).number(static_cast<std::uint64_t>(form.channels), 2);
    header.number(rate_hz, 4).number(rate_hz * frame_bytes, 4).number(frame_bytes, 2);
    header.number(8 * sample_bytes(form.type), 2);
    header.id("data").number(is_large ? kUnknownSize : data_bytes, 4);
    return header.bytes();
}

SampleWriter::SampleWriter(const std::string& path, const SampleForm& form)
    : file_(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600), form_(form) {
    if (!file_.is_open()) {
        fail_with_errno();
    }
}

SampleWriter::SampleWriter(const std::string& path, const SampleForm& form, std::uint64_t bytes)
    : file_(path, O_WRONLY | O_CLOEXEC), form_(form), bytes_(bytes) {
    if (!file_.is_open()) {
        fail_with_errno();
    }
}

void SampleWriter::write_at(std::uint64_t place, const char* from, std::size_t bytes) const {
    while (bytes > 0) {
        const ssize_t written = pwrite(file_.get(), from, bytes, static_cast<off_t>(place));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            fail_with_errno();
        }
        from += written;
        place += static_cast<std::uint64_t>(written);
        bytes -= static_cast<std::size_t>(written);
    }
}

void SampleWriter::add(const char* interleaved, std::size_t bytes) {
    write_at(kHeaderBytes + bytes_, interleaved, bytes);
    bytes_ += bytes;
}

void SampleWriter::finish() {
    const std::string header = wav_header(form_, bytes_);
    write_at(0, header.data(), header.size());
    if (bytes_ % 2 != 0) {
        write_at(kHeaderBytes + bytes_, "", 1);
    }
}

SampleReader::SampleReader(const std::string& path, int type)
    : file_(open_to_read(path)), type_(type) {}

std::uint64_t SampleReader::read(char* to, std::uint64_t frames) {
    const auto count = static_cast<sf_count_t>(frames);
    sf_count_t got = 0;
    switch (type_) {
        case QUORVANE_FLOAT32:
            got = file_.readf(static_cast<float*>(static_cast<void*>(to)), count);
            break;
        case QUORVANE_FLOAT64:
            got = file_.readf(static_cast<double*>(static_cast<void*>(to)), count);
            break;
        case QUORVANE_INT16:
            got = file_.readf(reinterpret_cast<short*>(to), count);
            break;
        default:
            got = file_.readf(reinterpret_cast<int*>(to), count);
    }
    if (file_.error() != SF_ERR_NO_ERROR) {
        throw std::runtime_error(file_.strError());
    }
    return static_cast<std::uint64_t>(std::max<sf_count_t>(got, 0));
}

}  // namespace quorvane
