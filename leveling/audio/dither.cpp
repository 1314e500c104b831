#include "leveling/audio/dither.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>

/*
 * Whether a frame lies in a long silence is known only when the silence has lasted long enough, so
 * frames wait for that time less one frame. A silence that becomes long enough with frame n began
 * silence_frames_ - 1 before it, with the frame that is written next.
 */

namespace quorvane {
namespace {

constexpr double kHalf = 4294967296.0;  // 2^32, the values of half a random number

/** SplitMix64's mixing of a counter into a random number. */
std::uint64_t mixed(std::uint64_t counter) {
    std::uint64_t value = counter * 0x9E3779B97F4A7C15;
    value = (value ^ (value >> 30)) * 0xBF58476D1CE4E5B9;
    value = (value ^ (value >> 27)) * 0x94D049BB133111EB;
    return value ^ (value >> 31);
}

/** Triangular between -1 and 1: the difference of two uniform values. */
double triangular(std::uint64_t random) {
    const auto first = static_cast<double>(random >> 32);
    const auto second = static_cast<double>(random & 0xFFFFFFFF);
    return (first - second) / kHalf;
}

/** floor, without a call into the library, for what is not far under the least sample. */
double rounded_down(double steps) {
    constexpr long long kUp = 1 << 16;  // what is cut off towards 0 is then cut off downwards
    return static_cast<double>(static_cast<long long>(steps + kUp) - kUp);
}

}  // namespace

// 24 bits and more have room below any recording's noise.
int dithered_bits(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
            return 8;
        case SF_FORMAT_PCM_16:
        case SF_FORMAT_ALAC_16:
            return kMostDitheredBits;
        default:
            return 0;
    }
}

Dither::Dither(int channels, int sample_rate_hz, int bits)
    : channels_(static_cast<std::size_t>(channels)),
      full_scale_(std::ldexp(1.0, bits - 1)),
      shift_(kMostDitheredBits - bits),
      silence_frames_(
          std::max<std::size_t>(1, static_cast<std::size_t>(kSilenceSeconds * sample_rate_hz))) {
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        channels_[i].key = mixed(i + 1);
    }
}

void Dither::keep_exact(int channel) {
    channels_[static_cast<std::size_t>(channel)].exact = true;
}

// Long digital silence stays as it is: no noise is added to it.
void Dither::follow_silence(const double* frame) {
    ++taken_;
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        Channel& channel = channels_[i];
        channel.silent_run = frame[i] == 0 ? channel.silent_run + 1 : 0;
        if (channel.silent_run >= silence_frames_) {
            channel.silent_end = taken_;
        }
    }
}

void Dither::write_frame(const double* frame, std::int16_t* to) {
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        const Channel& channel = channels_[i];
        const double steps = frame[i] * full_scale_;
        const bool silent = given_ < channel.silent_end && rounded_down(steps + 0.5) == 0;
        const double noise = silent || channel.exact ? 0 : triangular(mixed(channel.key + given_));
        const double rounded =
            rounded_down(std::clamp(steps + noise + 0.5, -full_scale_, full_scale_ - 1));
        to[i] = static_cast<std::int16_t>(static_cast<int>(rounded) * (1 << shift_));
    }
    ++given_;
}

void Dither::process(const double* samples,
                     const double* source,
                     std::size_t frames,
                     std::vector<std::int16_t>& out) {
    const std::size_t channels = channels_.size();
    waiting_.insert(waiting_.end(), samples, samples + frames * channels);
    const std::size_t begin = out.size();
    out.resize(begin + waiting_.size());
    std::size_t written = 0;
    for (std::size_t frame = 0; frame < frames; ++frame) {
        follow_silence(source + frame * channels);
        if (taken_ >= given_ + silence_frames_) {
            write_frame(waiting_.data() + written * channels,
                        out.data() + begin + written * channels);
            ++written;
        }
    }
    out.resize(begin + written * channels);
    waiting_.erase(waiting_.begin(),
                   waiting_.begin() + static_cast<std::ptrdiff_t>(written * channels));
}

void Dither::finish(std::vector<std::int16_t>& out) {
    const std::size_t begin = out.size();
    out.resize(begin + waiting_.size());
    for (std::size_t at = 0; at < waiting_.size(); at += channels_.size()) {
        write_frame(waiting_.data() + at, out.data() + begin + at);
    }
    waiting_.clear();
}

}  // namespace quorvane
