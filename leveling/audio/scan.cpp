#include "leveling/audio/scan.h"

#include <cerrno>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "Common/audio/power_and_peak.h"
#include "Common/audio/sound_handle.h"
#include "Common/stream/sound_source.h"
#include "leveling/audio/sound_file.h"

namespace quorvane {
namespace {

// Read at a time; no result depends on it.
constexpr std::size_t kBlockSamples = 32768;
constexpr std::int64_t kMostFrames = std::int64_t{1} << 48;  // 186 years at 48 kHz

}  // namespace

void require_form_of(const SndfileHandle& leveled, int sample_rate_hz, int channels) {
    if (leveled.samplerate() != sample_rate_hz || leveled.channels() != channels) {
        throw std::runtime_error("the leveled file does not have the format of its input");
    }
}

void require_numbers(const Scan& leveled) {
    if (!leveled.finite) {
        throw std::runtime_error("the leveled file holds samples that are not numbers");
    }
}

Scan scan(const std::string& path) {
    SF_INFO info{};
    const SoundHandle handle = open_sound_for_reading(path, info);
    if (!handle) {
        throw std::runtime_error(sound_open_reason());
    }
    SoundSource source(handle, path, info, fail_read);
    source.announce(std::numeric_limits<long long>::max());
    std::vector<double> block(kBlockSamples + static_cast<std::size_t>(info.channels));
    const long long block_frames = static_cast<long long>(block.size()) / info.channels;
    Scan result;
    double squares = 0;
    for (long long got = 0; (got = source.read(block.data(), block_frames)) > 0;) {
        add_power_and_peak(block.data(), got * info.channels, squares, result.peak);
        result.frames += got;
    }
    result.finite = std::isfinite(squares);
    if (result.frames > 0) {
        result.rms = std::sqrt(squares / static_cast<double>(result.frames * info.channels));
    }
    return result;
}

// libsndfile gives the largest number for a stream without a length.
bool is_known_length(std::int64_t frames) {
    return frames >= 0 && frames < kMostFrames;
}

bool reads_through(const std::string& path) {
    SndfileHandle file = open_to_read(path);
    std::vector<float> block(kBlockSamples * static_cast<std::size_t>(file.channels()));
    std::int64_t frames = 0;
    for (sf_count_t got = 0; (got = file.readf(block.data(), kBlockSamples)) > 0;) {
        frames += got;
    }
    return file.error() == SF_ERR_NO_ERROR && frames == file.frames();
}

bool last_frame_is_there(const std::string& path) {
    SndfileHandle file = open_to_read(path);
    if (!is_known_length(file.frames())) {
        return false;
    }
    if (file.frames() == 0) {
        return true;
    }
    std::vector<float> frame(static_cast<std::size_t>(file.channels()));
    errno = 0;
    const bool there = file.seek(file.frames() - 1, SEEK_SET) == file.frames() - 1 &&
                       file.readf(frame.data(), 1) == 1;
    // A disk that fails says nothing about the recording; the library reports both the same way.
    if (!there && errno != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return there;
}

}  // namespace quorvane
