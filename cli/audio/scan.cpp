#include "cli/audio/scan.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <stdexcept>
#include <system_error>
#include <vector>

#include "cli/audio/sample_sums.h"
#include "cli/audio/sound_file.h"

namespace cli {
namespace {

constexpr sf_count_t kBlockFrames = 65536;
constexpr std::int64_t kMostFrames = std::int64_t{1} << 48;  // 186 years at 48 kHz

}  // namespace

Scan scan(const std::string& path) {
    SndfileHandle file = open_to_read(path);
    std::vector<float> block(static_cast<std::size_t>(kBlockFrames) *
                             static_cast<std::size_t>(file.channels()));
    Scan result;
    double sum = 0;
    for (sf_count_t got = 0; (got = file.readf(block.data(), kBlockFrames)) > 0;) {
        const auto count = static_cast<std::size_t>(got * file.channels());
        const float peak = peak_of(block.data(), count);
        result.finite = result.finite && std::isfinite(peak);
        result.peak = std::max(result.peak, static_cast<double>(peak));
        sum += sum_of_squares(block.data(), count);
        result.frames += got;
    }
    if (file.error()) {
        throw std::runtime_error(file.strError());
    }
    if (result.frames > 0) {
        result.rms = std::sqrt(sum / static_cast<double>(result.frames * file.channels()));
    }
    return result;
}

bool is_known_length(std::int64_t frames) {
    return frames >= 0 && frames < kMostFrames;
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
    // A disk that fails says nothing about the recording; the library tells of both in one way.
    if (!there && errno != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return there;
}

}  // namespace cli
