#include "leveling/report/excerpt_sound.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <numeric>
#include <stdexcept>

#include "Common/audio/wide_loops.h"
#include "leveling/audio/loudness_meter.h"
#include "leveling/audio/sound_file.h"
#include "leveling/metadata/ogg_pages.h"
#include "leveling/publish/sinc.h"

namespace quorvane {
namespace {

constexpr double kMostPeak = 0.89;  // linear, -1 dBFS
// At a lower rate Opus codes one channel of speech in another way, which takes three times as long.
constexpr double kBitsPerSecondOfMono = 60000;
constexpr double kBitsPerSecondOfStereo = 32000;                  // a channel
constexpr int kOpusRates[] = {8000, 12000, 16000, 24000, 48000};  // Hz, all that the codec knows
constexpr std::uint32_t kSerial = 1;
constexpr std::size_t kResamplerTaps = 32;  // inaudible errors, and cheap for some seconds

constexpr std::size_t kLanes = 8;

/** The sum of products of one frame's taps; eight sums, so that the order is that of a vector. */
inline float weighted(const float* weights, const float* samples) {
    float sums[kLanes] = {};
    for (std::size_t tap = 0; tap < kResamplerTaps; tap += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            sums[lane] += weights[tap + lane] * samples[tap + lane];
        }
    }
    return ((sums[0] + sums[4]) + (sums[1] + sums[5])) +
           ((sums[2] + sums[6]) + (sums[3] + sums[7]));
}

/** From one rate to another, both divided by what they share. */
struct Ratio {
    std::size_t from;
    std::size_t to;
};

/** plane: the channel with kResamplerTaps of silence on both sides; weights: `to` rows of taps. */
QUORVANE_WIDE_LOOP
void resample(const float* plane,
              const float* weights,
              const Ratio& ratio,
              std::size_t count,
              double* to,
              std::size_t stride) {
    for (std::size_t frame = 0; frame < count; ++frame) {
        const std::size_t place = frame * ratio.from;
        // The taps lie around the new frame's place in the clip.
        const float* first = plane + place / ratio.to + kResamplerTaps / 2 + 1;
        to[frame * stride] =
            static_cast<double>(weighted(weights + place % ratio.to * kResamplerTaps, first));
    }
}

/** Rows of weights, one for each place that a new frame can have between two old ones. */
std::vector<float> weights_of(const Ratio& ratio) {
    // Of the clip's Nyquist frequency: lower where the new rate holds less than the old one.
    const double cutoff =
        std::min(1.0, static_cast<double>(ratio.to) / static_cast<double>(ratio.from));
    std::vector<float> weights;
    for (std::size_t row = 0; row < ratio.to; ++row) {
        const double fraction = static_cast<double>(row) / static_cast<double>(ratio.to);
        for (const double weight : sinc_weights(fraction, kResamplerTaps, cutoff)) {
            weights.push_back(static_cast<float>(weight));
        }
    }
    return weights;
}

/** The clip at a rate that Opus takes, the next higher one where there is one. */
Samples resampled(const Samples& clip) {
    int rate = 48000;
    for (int candidate : kOpusRates) {
        if (candidate >= clip.sample_rate_hz) {
            rate = candidate;
            break;
        }
    }
    if (rate == clip.sample_rate_hz) {
        return clip;
    }
    const int shared = std::gcd(rate, clip.sample_rate_hz);
    const Ratio ratio{static_cast<std::size_t>(clip.sample_rate_hz / shared),
                      static_cast<std::size_t>(rate / shared)};
    const auto channels = static_cast<std::size_t>(clip.channels);
    const std::size_t frames = clip.values.size() / channels;
    const std::size_t count = (frames * ratio.to + ratio.from - 1) / ratio.from;
    const std::vector<float> weights = weights_of(ratio);
    std::vector<float> plane(frames + 2 * kResamplerTaps);
    Samples result{rate, clip.channels, std::vector<double>(count * channels)};
    for (std::size_t channel = 0; channel < channels; ++channel) {
        for (std::size_t i = 0; i < frames; ++i) {
            plane[kResamplerTaps + i] = static_cast<float>(clip.values[i * channels + channel]);
        }
        resample(plane.data(), weights.data(), ratio, count, &result.values[channel], channels);
    }
    return result;
}

/** LUFS; minus infinity for silence. */
double loudness_of(const Samples& clip) {
    LoudnessMeter meter(clip.channels, clip.sample_rate_hz);
    meter.add(clip.values.data(), clip.values.size() / static_cast<std::size_t>(clip.channels));
    return meter.integrated_lufs();
}

/** Linear, over all channels. */
double peak_of(const Samples& clip) {
    double peak = 0;
    for (double sample : clip.values) {
        peak = std::max(peak, std::fabs(sample));
    }
    return peak;
}

void scale(Samples& clip, double gain) {
    for (double& sample : clip.values) {
        sample *= gain;
    }
}

/** A file in memory, for libsndfile. */
struct MemoryFile {
    std::string bytes;
    sf_count_t at = 0;

    static MemoryFile& of(void* self) { return *static_cast<MemoryFile*>(self); }

    static sf_count_t size(void* self) { return static_cast<sf_count_t>(of(self).bytes.size()); }

    static sf_count_t seek(sf_count_t offset, int from, void* self) {
        MemoryFile& file = of(self);
        file.at = offset + (from == SEEK_SET ? 0 : from == SEEK_CUR ? file.at : size(self));
        return file.at;
    }

    static sf_count_t read(void* to, sf_count_t count, void* self) {
        MemoryFile& file = of(self);
        count = std::clamp<sf_count_t>(size(self) - file.at, 0, count);
        std::memcpy(to, file.bytes.data() + file.at, static_cast<std::size_t>(count));
        file.at += count;
        return count;
    }

    static sf_count_t write(const void* from, sf_count_t count, void* self) {
        MemoryFile& file = of(self);
        const auto end = static_cast<std::size_t>(file.at + count);
        file.bytes.resize(std::max(file.bytes.size(), end));
        std::memcpy(&file.bytes[static_cast<std::size_t>(file.at)], from,
                    static_cast<std::size_t>(count));
        file.at += count;
        return count;
    }

    static sf_count_t tell(void* self) { return of(self).at; }
};

/** An Ogg Opus file as bytes. Throws with the library's reason. */
std::string opus(const Samples& clip) {
    MemoryFile memory;
    SF_VIRTUAL_IO io = {MemoryFile::size, MemoryFile::seek, MemoryFile::read, MemoryFile::write,
                        MemoryFile::tell};
    {
        SndfileHandle file(io, &memory, SFM_WRITE, SF_FORMAT_OGG | SF_FORMAT_OPUS, clip.channels,
                           clip.sample_rate_hz);
        if (!file.rawHandle()) {
            throw std::runtime_error(file.strError());
        }
        const double bits_per_second =
            clip.channels == 1 ? kBitsPerSecondOfMono : kBitsPerSecondOfStereo;
        double compression = 1 - (bits_per_second - 6000) / 250000;  // libsndfile's own scale
        file.command(SFC_SET_COMPRESSION_LEVEL, &compression, sizeof compression);
        file.write(clip.values.data(), static_cast<sf_count_t>(clip.values.size()));
    }
    // The library draws a serial number at random, and equal recordings shall give equal pages.
    set_ogg_serial_of(memory.bytes, kSerial);
    return memory.bytes;
}

/** One or two channels as they are; more become one, their mean. */
Samples folded(const Samples& clip) {
    constexpr int kMostKept = 2;
    if (clip.channels <= kMostKept) {
        return clip;
    }
    const auto channels = static_cast<std::size_t>(clip.channels);
    Samples mono{clip.sample_rate_hz, 1, {}};
    for (std::size_t i = 0; i + channels <= clip.values.size(); i += channels) {
        double sum = 0;
        for (std::size_t channel = 0; channel < channels; ++channel) {
            sum += clip.values[i + channel];
        }
        mono.values.push_back(sum / clip.channels);
    }
    return mono;
}

/** RFC 4648, with padding. */
std::string base64(const std::string& bytes) {
    constexpr const char* kDigits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned long three = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            three =
                three << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            text += i + k <= bytes.size() ? kDigits[three >> (18 - 6 * k) & 63] : '=';
        }
    }
    return text;
}

}  // namespace

void make_equally_loud(Samples& first, Samples& second) {
    const double difference = loudness_of(second) - loudness_of(first);
    if (std::isfinite(difference)) {
        scale(first, std::pow(10, difference / 20));
    }
    const double peak = std::max(peak_of(first), peak_of(second));
    if (peak > kMostPeak) {
        scale(first, kMostPeak / peak);
        scale(second, kMostPeak / peak);
    }
}

std::string audio_data_of(const Samples& samples) {
    return "data:audio/ogg;base64," + base64(opus(resampled(folded(samples))));
}

}  // namespace quorvane
