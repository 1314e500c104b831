#include "leveling/audio/dither.h"

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "Common/audio/wide_loops.h"

/*
 * Whether a frame lies in a long silence is known only when the silence has lasted long enough, so
 * frames wait for that time less one frame. A silence that becomes long enough with frame n began
 * silence_frames_ - 1 before it, with the frame that is written next.
 *
 * Runs of frames outside of such silences, which is nearly all of a recording, are rounded in
 * vectors, with the operations of single frames and thus to the same bits.
 */

namespace quorvane {
namespace {

constexpr double kHalf = 4294967296.0;  // 2^32, the values of half a random number
constexpr std::size_t kRun = 64;        // frames that are rounded at once
constexpr double kUp = 65536;           // above any sample, so that cutting off rounds down

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
    return static_cast<double>(static_cast<long long>(steps + kUp)) - kUp;
}

/**
 * triangular() with operations that processors have in vectors. An integer below 2^51 that is added
 * to the bits of 1.5 * 2^52 is added to its value.
 */
inline double triangular_in_vectors(std::uint64_t random) {
    constexpr std::uint64_t kBits = 0x4338000000000000;
    constexpr double kValue = 6755399441055744.0;
    const std::uint64_t sum = kBits + (random >> 32) - (random & 0xFFFFFFFF);
    double value = 0;
    std::memcpy(&value, &sum, sizeof value);
    return (value - kValue) * (1 / kHalf);
}

/** Rounds samples with the noise of their counters, which begin at `first`. scale: of a step. */
QUORVANE_WIDE_LOOP void round_samples(const double* samples,
                                      const std::uint64_t* counters,
                                      std::uint64_t first,
                                      std::size_t count,
                                      double full_scale,
                                      int scale,
                                      std::int16_t* to) {
    for (std::size_t i = 0; i < count; ++i) {
        const double steps =
            samples[i] * full_scale + triangular_in_vectors(mixed(counters[i] + first)) + 0.5;
        const double least = steps < -full_scale ? -full_scale : steps;
        const double clamped = full_scale - 1 < least ? full_scale - 1 : least;
        const int rounded = static_cast<int>(clamped + kUp) - static_cast<int>(kUp);
        to[i] = static_cast<std::int16_t>(rounded * scale);
    }
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
    for (std::size_t frame = 0; frame < kRun; ++frame) {
        for (const Channel& channel : channels_) {
            counters_.push_back(channel.key + frame);
        }
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

/** Whether frames neither end a long silence nor are taken while one is being written. */
bool Dither::is_all_sound(const double* source, std::size_t frames) const {
    if (frames > silence_frames_) {
        return false;
    }
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        const Channel& channel = channels_[i];
        std::size_t silent = 0;
        while (silent < frames && source[silent * channels_.size() + i] == 0) {
            ++silent;
        }
        if (channel.exact || given_ < channel.silent_end ||
            channel.silent_run + silent >= silence_frames_) {
            return false;
        }
    }
    return true;
}

/** Counts frames that are all sound, and returns how many are ready then. */
std::size_t Dither::pass_by(const double* source, std::size_t frames) {
    for (std::size_t i = 0; i < channels_.size(); ++i) {
        std::size_t silent = 0;
        while (silent < frames && source[(frames - 1 - silent) * channels_.size() + i] == 0) {
            ++silent;
        }
        channels_[i].silent_run = silent == frames ? channels_[i].silent_run + frames : silent;
    }
    taken_ += frames;
    return taken_ < given_ + silence_frames_
               ? 0
               : static_cast<std::size_t>(taken_ - given_ - silence_frames_ + 1);
}

/** At most a run, which no silence is in. */
void Dither::write_sound(const double* samples, std::size_t frames, std::int16_t* to) {
    round_samples(samples, counters_.data(), given_, frames * channels_.size(), full_scale_,
                  1 << shift_, to);
    given_ += frames;
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
    for (std::size_t done = 0; done < frames; done += kRun) {
        const std::size_t end = std::min(frames, done + kRun);
        if (is_all_sound(source + done * channels, end - done)) {
            const std::size_t ready = pass_by(source + done * channels, end - done);
            write_sound(waiting_.data() + written * channels, ready,
                        out.data() + begin + written * channels);
            written += ready;
            continue;
        }
        for (std::size_t frame = done; frame < end; ++frame) {
            follow_silence(source + frame * channels);
            if (taken_ >= given_ + silence_frames_) {
                write_frame(waiting_.data() + written * channels,
                            out.data() + begin + written * channels);
                ++written;
            }
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
