#include "leveling/preparation/sound_files.h"

#include <cerrno>
#include <stdexcept>

#include "leveling/audio/sound_file.h"
#include "leveling/facts/no_room.h"

namespace quorvane {
namespace {

/** Opening writes the header, which a full disk does not take. */
SndfileHandle opened(int descriptor, int format, int channels, int sample_rate_hz) {
    constexpr bool kCloses = false;
    errno = 0;
    SndfileHandle file(descriptor, kCloses, SFM_WRITE, format, channels, sample_rate_hz);
    if (!file.rawHandle() || file.error()) {
        fail_write(errno, sf_strerror(file.rawHandle()));
    }
    return file;
}

std::optional<quorvane::Dither> dither_for(int format, int channels, int sample_rate_hz) {
    const int bits = quorvane::dithered_bits(format);
    return bits > 0 ? std::optional<quorvane::Dither>(std::in_place, channels, sample_rate_hz, bits)
                    : std::nullopt;
}

}  // namespace

InputFile::InputFile(const std::string& path)
    : file_(quorvane::open_to_read(path)),
      info_(info_of(file_)),
      source_(std::make_unique<SoundSource>(
          SoundHandle(file_.rawHandle(), [](SNDFILE* /*kept by file_*/) {}),
          path,
          info_,
          quorvane::fail_read)) {}

OutputFile::OutputFile(const std::string& path, int format, int channels, int sample_rate_hz)
    : file_(quorvane::open_to_write(path, format, channels, sample_rate_hz)),
      dither_(dither_for(format, channels, sample_rate_hz)) {
    // A sample that rounds above full scale would wrap in integer formats.
    file_.command(SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

OutputFile::OutputFile(int descriptor, int format, int channels, int sample_rate_hz)
    : file_(opened(descriptor, format, channels, sample_rate_hz)),
      dither_(dither_for(format, channels, sample_rate_hz)) {
    file_.command(SFC_SET_CLIPPING, nullptr, SF_TRUE);
}

void OutputFile::set_channel_map(const std::vector<int>& map) {
    if (!map.empty()) {
        std::vector<int> places = map;
        file_.command(SFC_SET_CHANNEL_MAP_INFO, places.data(),
                      static_cast<int>(places.size() * sizeof(int)));
    }
}

void OutputFile::keep_exact(int channel) {
    if (dither_) {
        dither_->keep_exact(channel);
    }
}

void OutputFile::take(const double* samples, const double* recording, long long frames) {
    frames_ += frames;
    if (dither_) {
        dither_->process(samples, recording, static_cast<std::size_t>(frames), ready_);
        write_ready();
        return;
    }
    errno = 0;
    if (file_.writef(samples, frames) != frames) {
        fail_write(errno, file_.strError());
    }
}

void OutputFile::write_ready() {
    const auto count = static_cast<sf_count_t>(ready_.size());
    errno = 0;
    if (file_.write(ready_.data(), count) != count) {
        fail_write(errno, file_.strError());
    }
    ready_.clear();
}

void OutputFile::finish() {
    if (dither_) {
        dither_->finish(ready_);
        write_ready();
    }
    errno = 0;
    const int error = sf_close(file_.takeOwnership());
    if (error != 0) {
        fail_write(errno, sf_error_number(error));
    }
}

}  // namespace quorvane
