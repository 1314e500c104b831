#include "leveling/preparation/sections.h"

#include <algorithm>

#include "leveling/audio/portable_math.h"

namespace quorvane {
namespace {

constexpr double kLeastState = 1e-30;

// Of the two sections that make a Butterworth filter of the fourth order: 1 / (2 cos(pi / 8)) and
// 1 / (2 cos(3 pi / 8)).
constexpr double kFirstQuality = 0.541196100146197;
constexpr double kSecondQuality = 1.306562964876377;

struct Angle {
    double sine;
    double cosine;
};

Angle angle_of(double corner_hz, int sample_rate_hz) {
    const double turns = 2 * corner_hz / sample_rate_hz;  // in units of pi
    return {quorvane::portable_sin_pi(turns), quorvane::portable_sin_pi(turns + 0.5)};
}

/** Filters frames and passes each through `use`. `to` may be `from`. */
template <int Channels, class Use>
void filter_frames(
    PairFilter& filter, const double* from, double* to, long long frames, const Use& use) {
    PairFilter local = filter;  // which stays in registers
    for (long long i = 0; i < frames; ++i) {
        const Pair x = Channels == 1 ? Pair{from[i], 0} : Pair{from[2 * i], from[2 * i + 1]};
        const Pair y = use(local.next(x));
        for (int channel = 0; channel < Channels; ++channel) {
            to[Channels * i + channel] = y[channel];
        }
    }
    local.drop_tail();
    filter = local;
}

}  // namespace

Section high_pass(double corner_hz, double quality, int sample_rate_hz) {
    const auto [sine, cosine] = angle_of(corner_hz, sample_rate_hz);
    const double alpha = sine / (2 * quality);
    const double a0 = 1 + alpha;
    return {(1 + cosine) / 2 / a0, -(1 + cosine) / a0, (1 + cosine) / 2 / a0, -2 * cosine / a0,
            (1 - alpha) / a0};
}

Section low_pass(double corner_hz, double quality, int sample_rate_hz) {
    const auto [sine, cosine] = angle_of(corner_hz, sample_rate_hz);
    const double alpha = sine / (2 * quality);
    const double a0 = 1 + alpha;
    return {(1 - cosine) / 2 / a0, (1 - cosine) / a0, (1 - cosine) / 2 / a0, -2 * cosine / a0,
            (1 - alpha) / a0};
}

std::vector<Section> steep_high_pass(double corner_hz, int sample_rate_hz) {
    return {high_pass(corner_hz, kFirstQuality, sample_rate_hz),
            high_pass(corner_hz, kSecondQuality, sample_rate_hz)};
}

PairFilter::PairFilter(const Section& section)
    : b0_{section.b0, section.b0},
      b1_{section.b1, section.b1},
      b2_{section.b2, section.b2},
      a1_{section.a1, section.a1},
      a2_{section.a2, section.a2} {}

void PairFilter::drop_tail() {
    for (int lane = 0; lane < 2; ++lane) {
        if (s1_[lane] * s1_[lane] + s2_[lane] * s2_[lane] < kLeastState * kLeastState) {
            s1_[lane] = 0;
            s2_[lane] = 0;
        }
    }
}

FilterChain::FilterChain(const std::vector<Section>& sections, int channels)
    : sections_(sections), channels_(channels) {
    reset();
}

void FilterChain::reset() {
    filters_.clear();
    for (const Section& section : sections_) {
        filters_.emplace_back(section);
    }
}

void FilterChain::process(double* samples, long long frames) {
    const auto as_it_is = [](Pair y) { return y; };
    for (PairFilter& filter : filters_) {
        if (channels_ == 1) {
            filter_frames<1>(filter, samples, samples, frames, as_it_is);
        } else {
            filter_frames<2>(filter, samples, samples, frames, as_it_is);
        }
    }
}

void FilterChain::process(
    const double* from, double* to, long long frames, double gain, double step) {
    const auto amplified = [&gain, step](Pair y) {
        const Pair result = y * gain;
        gain += step;
        return result;
    };
    PairFilter* const only = only_section();
    if (only != nullptr && channels_ == 1) {
        filter_frames<1>(*only, from, to, frames, amplified);
    } else if (only != nullptr) {
        filter_frames<2>(*only, from, to, frames, amplified);
    } else {
        std::copy_n(from, frames * channels_, to);
        process(to, frames);
        for (long long i = 0; i < frames; ++i) {
            for (long long s = i * channels_; s < (i + 1) * channels_; ++s) {
                to[s] *= gain;
            }
            gain += step;
        }
    }
}

}  // namespace quorvane
