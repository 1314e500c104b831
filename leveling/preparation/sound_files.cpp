#include "leveling/preparation/sound_files.h"

#include <stdexcept>

#include "leveling/audio/sound_file.h"

namespace quorvane {
namespace {

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
    : file_(descriptor, false, SFM_WRITE, format, channels, sample_rate_hz),
      dither_(dither_for(format, channels, sample_rate_hz)) {
    if (!file_.rawHandle() || file_.error()) {
        throw std::runtime_error(sf_strerror(file_.rawHandle()));
    }
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
    } else if (file_.writef(samples, frames) != frames) {
        throw std::runtime_error(file_.strError());
    }
}

void OutputFile::write_ready() {
    const auto count = static_cast<sf_count_t>(ready_.size());
    if (file_.write(ready_.data(), count) != count) {
        throw std::runtime_error(file_.strError());
    }
    ready_.clear();
}

void OutputFile::finish() {
    if (dither_) {
        dither_->finish(ready_);
        write_ready();
    }
    const int error = sf_close(file_.takeOwnership());
    if (error != 0) {
        throw std::runtime_error(sf_error_number(error));
    }
}

}  // namespace quorvane
