#include "library/samples/frames.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>
#include <numeric>

#include "Common/audio/wide_loops.h"

namespace quorvane {
namespace {

template <std::size_t kBytes>
void copy_strided(
    const char* from, std::ptrdiff_t from_step, char* to, std::ptrdiff_t to_step, std::uint64_t n) {
    for (std::uint64_t i = 0; i < n; ++i) {
        std::memcpy(to, from, kBytes);
        from += from_step;
        to += to_step;
    }
}

void copy_samples(const char* from,
                  std::ptrdiff_t from_step,
                  char* to,
                  std::ptrdiff_t to_step,
                  std::uint64_t n,
                  std::size_t bytes) {
    switch (bytes) {
        case 2:
            return copy_strided<2>(from, from_step, to, to_step, n);
        case 4:
            return copy_strided<4>(from, from_step, to, to_step, n);
        default:
            return copy_strided<8>(from, from_step, to, to_step, n);
    }
}

/**
 * A sum of zero times each sample is zero unless one of them is infinite or not a number. Many sums
 * side by side do not wait for each other, so this is as fast as memory.
 */
template <class Sample>
__attribute__((always_inline)) inline bool is_finite(const Sample* samples, std::size_t count) {
    constexpr std::size_t kSums = 32;
    Sample sums[kSums] = {};
    std::size_t i = 0;
    for (; i + kSums <= count; i += kSums) {
        for (std::size_t k = 0; k < kSums; ++k) {
            sums[k] += samples[i + k] * 0;
        }
    }
    for (; i < count; ++i) {
        sums[0] += samples[i] * 0;
    }
    return std::accumulate(std::begin(sums), std::end(sums), Sample{0}) == 0;
}

QUORVANE_WIDE_LOOP bool are_finite(const float* samples, std::size_t count) {
    return is_finite(samples, count);
}

QUORVANE_WIDE_LOOP bool are_finite(const double* samples, std::size_t count) {
    return is_finite(samples, count);
}

/** The caller's memory need not be aligned. */
template <class Sample>
std::size_t find_not_finite(const char* bytes, std::size_t count) {
    constexpr std::size_t kPiece = 1024;
    Sample piece[kPiece];
    for (std::size_t from = 0; from < count; from += kPiece) {
        const std::size_t here = std::min(count - from, kPiece);
        std::memcpy(piece, bytes + from * sizeof(Sample), here * sizeof(Sample));
        if (!are_finite(piece, here)) {
            const Sample* const bad =
                std::find_if(piece, piece + here, [](Sample x) { return !std::isfinite(x); });
            return from + static_cast<std::size_t>(bad - piece);
        }
    }
    return count;
}

}  // namespace

std::size_t sample_bytes(int type) {
    switch (type) {
        case QUORVANE_INT16:
            return 2;
        case QUORVANE_FLOAT32:
        case QUORVANE_INT32:
            return 4;
        case QUORVANE_FLOAT64:
            return 8;
        default:
            return 0;
    }
}

Layout::Layout(const quorvane_audio& audio)
    : bytes_(sample_bytes(audio.type)),
      channels_(audio.channels),
      samples_(static_cast<char*>(const_cast<void*>(audio.samples))),
      planes_(audio.planes) {
    set_strides(audio.frame_stride, audio.channel_stride);
}

Layout::Layout(const quorvane_buffer& buffer, int type, int channels)
    : bytes_(sample_bytes(type)),
      channels_(channels),
      samples_(static_cast<char*>(buffer.samples)),
      planes_(buffer.planes) {
    set_strides(buffer.frame_stride, buffer.channel_stride);
}

void Layout::set_strides(std::ptrdiff_t frame_stride, std::ptrdiff_t channel_stride) {
    const auto bytes = static_cast<std::ptrdiff_t>(bytes_);
    frame_stride_ = frame_stride;
    channel_stride_ = channel_stride;
    if (frame_stride == 0 && channel_stride == 0) {
        frame_stride_ = samples_ != nullptr ? bytes * channels_ : bytes;
        channel_stride_ = bytes;
    }
}

bool Layout::is_interleaved() const {
    const auto bytes = static_cast<std::ptrdiff_t>(bytes_);
    return samples_ != nullptr && frame_stride_ == bytes * channels_ &&
           (channel_stride_ == bytes || channels_ == 1);
}

char* Layout::at(std::uint64_t frame, int channel) const {
    const std::ptrdiff_t offset = static_cast<std::ptrdiff_t>(frame) * frame_stride_;
    if (samples_ == nullptr) {
        return static_cast<char*>(const_cast<void*>(planes_[channel])) + offset;
    }
    return samples_ + offset + channel * channel_stride_;
}

void gather(const Layout& from, std::uint64_t begin, std::uint64_t frames, char* to) {
    const std::size_t bytes = from.bytes();
    const auto step = static_cast<std::ptrdiff_t>(bytes) * from.channels();
    for (int channel = 0; frames > 0 && channel < from.channels(); ++channel) {
        const std::ptrdiff_t from_step =
            frames > 1 ? from.at(begin + 1, channel) - from.at(begin, channel) : 0;
        copy_samples(from.at(begin, channel), from_step,
                     to + static_cast<std::ptrdiff_t>(bytes) * channel, step, frames, bytes);
    }
}

void scatter(const char* from, std::uint64_t frames, const Layout& to, std::uint64_t begin) {
    const std::size_t bytes = to.bytes();
    const auto step = static_cast<std::ptrdiff_t>(bytes) * to.channels();
    for (int channel = 0; frames > 0 && channel < to.channels(); ++channel) {
        const std::ptrdiff_t to_step =
            frames > 1 ? to.at(begin + 1, channel) - to.at(begin, channel) : 0;
        copy_samples(from + static_cast<std::ptrdiff_t>(bytes) * channel, step,
                     to.at(begin, channel), to_step, frames, bytes);
    }
}

std::size_t first_not_finite(int type, const char* samples, std::size_t count) {
    switch (type) {
        case QUORVANE_FLOAT32:
            return find_not_finite<float>(samples, count);
        case QUORVANE_FLOAT64:
            return find_not_finite<double>(samples, count);
        default:
            return count;
    }
}

}  // namespace quorvane
