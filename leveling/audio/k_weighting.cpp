#include "leveling/audio/k_weighting.h"

#include <cmath>
#include <cstring>
#include <iterator>

#include "Common/audio/wide_loops.h"

/*
 * Two channels stand side by side in one vector, and where a run is long two runs of them: a
 * recursion waits for its own result, and the lanes do not wait for each other.
 */

namespace quorvane {
namespace {

constexpr std::size_t kLanes = KWeighting::kLanes;

/**
 * A recursion that fades out gets slow where numbers lose their leading bits. What is smaller than
 * this has no square.
 */
constexpr double kNothing = 1e-200;

/** Two doubles that the compiler keeps in one register. */
using Vector __attribute__((vector_size(kLanes * sizeof(double)))) = double;

Vector load(const std::array<double, kLanes>& values) {
    return Vector{values[0], values[1]};
}

double audible(double value) {
    return std::fabs(value) < kNothing ? 0.0 : value;
}

void store(Vector vector, std::array<double, kLanes>& values) {
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
        values[lane] = audible(vector[lane]);
    }
}

constexpr std::size_t kValues = 6;  // that the filters remember of a channel

/** Two runs of frames, and what stands for each channel of the first and then of the second. */
struct TwoRuns {
    const float* first = nullptr;
    const float* second = nullptr;
    std::size_t frames = 0;
    double memory[kValues][2 * kLanes] = {};
    double sums[2 * kLanes] = {};
};

// Of a template's alias the compiler forgets the attribute.
typedef double Four __attribute__((vector_size(2 * kLanes * sizeof(double))));      // NOLINT
typedef float FourFloats __attribute__((vector_size(2 * kLanes * sizeof(float))));  // NOLINT

/**
 * Both filters on the way through some frames, a lane for each run and channel. Of a frame's sums
 * only the last subtraction waits for the frame before, so that the processor works on several
 * frames and on both filters at once.
 */
template <class Lanes>
struct Filtering {
    const KWeighting::Biquad s;  // the shelf
    const KWeighting::Biquad h;  // the high-pass
    Lanes x1, x2, y1, y2, z1, z2;
    Lanes sum;  // of squares

    __attribute__((always_inline)) void take(const Lanes& x) {
        const Lanes y = (s.b0 * x + s.b1 * x1 + s.b2 * x2 - s.a2 * y2) - s.a1 * y1;
        const Lanes z = (y + h.b1 * y1 + y2 - h.a2 * z2) - h.a1 * z1;
        sum += z * z;
        x2 = x1, x1 = x;
        y2 = y1, y1 = y;
        z2 = z1, z1 = z;
    }
};

/** next sets the samples of a frame. */
template <class Lanes, class Next>
__attribute__((always_inline)) inline void filter_runs(const KWeighting::Biquad& shelf,
                                                       const KWeighting::Biquad& high_pass,
                                                       TwoRuns& runs,
                                                       const Next& next) {
    Lanes values[kValues];
    for (std::size_t value = 0; value < kValues; ++value) {
        std::memcpy(&values[value], runs.memory[value], sizeof(Lanes));
    }
    Filtering<Lanes> filters{shelf,     high_pass, values[0], values[1], values[2],
                             values[3], values[4], values[5], {}};
    for (std::size_t frame = 0; frame < runs.frames; ++frame) {
        Lanes x;
        next(frame, x);
        filters.take(x);
    }
    const Lanes left[kValues] = {filters.x1, filters.x2, filters.y1,
                                 filters.y2, filters.z1, filters.z2};
    for (std::size_t value = 0; value < kValues; ++value) {
        std::memcpy(runs.memory[value], &left[value], sizeof(Lanes));
    }
    std::memcpy(runs.sums, &filters.sum, sizeof filters.sum);
}

QUORVANE_WIDE_LOOP void filter_mono_runs(const KWeighting::Biquad& shelf,
                                         const KWeighting::Biquad& high_pass,
                                         TwoRuns& runs) {
    filter_runs<Vector>(shelf, high_pass, runs, [&](std::size_t frame, Vector& x) {
        x = Vector{static_cast<double>(runs.first[frame]), static_cast<double>(runs.second[frame])};
    });
}

QUORVANE_WIDE_LOOP void filter_stereo_runs(const KWeighting::Biquad& shelf,
                                           const KWeighting::Biquad& high_pass,
                                           TwoRuns& runs) {
    filter_runs<Four>(shelf, high_pass, runs, [&](std::size_t frame, Four& x) {
        float samples[2 * kLanes];
        std::memcpy(samples, runs.first + kLanes * frame, kLanes * sizeof(float));
        std::memcpy(samples + kLanes, runs.second + kLanes * frame, kLanes * sizeof(float));
        FourFloats four;
        std::memcpy(&four, samples, sizeof four);
        x = __builtin_convertvector(four, Four);
    });
}

/** BS.1770-4, table 3. */
double channel_weight(std::size_t channel, std::size_t channels) {
    constexpr double kSurround = 1.41;

    enum Place { Front, Lfe, Surround, Other };

    constexpr Place kUsual[] = {Front, Front, Front, Lfe, Surround, Surround};
    constexpr Place kFour[] = {Front, Front, Surround, Surround};
    constexpr Place kFive[] = {Front, Front, Front, Surround, Surround};
    Place place = channel < std::size(kUsual) ? kUsual[channel] : Other;
    if (channels == std::size(kFour)) {
        place = kFour[channel];
    } else if (channels == std::size(kFive)) {
        place = kFive[channel];
    }
    return place == Front ? 1 : place == Surround ? kSurround : 0;
}

}  // namespace

// BS.1770-4 prints the coefficients for 48 kHz alone. These are the analogue filters behind them,
// with a bilinear transform that keeps their corners in place at every rate; the printed values
// come out to all their digits. Corner, gain and quality as in De Man, "Evaluation of
// Implementations of the EBU R128 Loudness Measurement", AES 145, 2018.
KWeighting::Biquad KWeighting::shelf(int sample_rate_hz) {
    constexpr double kCorner_hz = 1681.974450955533;
    constexpr double kGain_db = 3.999843853973347;
    constexpr double kQuality = 0.7071752369554196;
    constexpr double kMiddle = 0.4996667741545416;  // exponent of the gain at the corner
    const double k = std::tan(M_PI * kCorner_hz / sample_rate_hz);
    const double high = std::pow(10, kGain_db / 20);
    const double middle = std::pow(high, kMiddle);
    const double a0 = 1 + k / kQuality + k * k;
    return {(high + middle * k / kQuality + k * k) / a0, 2 * (k * k - high) / a0,
            (high - middle * k / kQuality + k * k) / a0, 2 * (k * k - 1) / a0,
            (1 - k / kQuality + k * k) / a0};
}

KWeighting::Biquad KWeighting::high_pass(int sample_rate_hz) {
    constexpr double kCorner_hz = 38.13547087602444;
    constexpr double kQuality = 0.5003270373238773;
    const double k = std::tan(M_PI * kCorner_hz / sample_rate_hz);
    const double a0 = 1 + k / kQuality + k * k;
    return {1, -2, 1, 2 * (k * k - 1) / a0, (1 - k / kQuality + k * k) / a0};
}

KWeighting::KWeighting(int channels, int sample_rate_hz, const std::vector<double>& weights)
    : channels_(static_cast<std::size_t>(channels)),
      shelf_(shelf(sample_rate_hz)),
      high_pass_(high_pass(sample_rate_hz)),
      pairs_((channels_ + 1) / kLanes) {
    for (std::size_t channel = 0; channel < channels_; ++channel) {
        pairs_[channel / kLanes].weights[channel % kLanes] =
            weights.empty() ? channel_weight(channel, channels_) : weights[channel];
    }
}

/**
 * Frames of two channels, or of one with silence beside it, that are kStride samples apart (0:
 * channels_).
 */
template <std::size_t kStride, class Sample>
double KWeighting::filter(Memory& memory, const Sample* samples, std::size_t frames) const {
    const std::size_t stride = kStride == 0 ? channels_ : kStride;
    const bool both = kStride == kLanes || memory.weights[1] != 0;
    auto& values = memory.values;
    Filtering<Vector> filters{shelf_,          high_pass_,      load(values[0]),
                              load(values[1]), load(values[2]), load(values[3]),
                              load(values[4]), load(values[5]), {}};
    for (const Sample* at = samples; at != samples + frames * stride; at += stride) {
        filters.take(Vector{static_cast<double>(at[0]), both ? static_cast<double>(at[1]) : 0.0});
    }
    store(filters.x1, values[0]), store(filters.x2, values[1]);
    store(filters.y1, values[2]), store(filters.y2, values[3]);
    store(filters.z1, values[4]), store(filters.z2, values[5]);
    return memory.weights[0] * filters.sum[0] + memory.weights[1] * filters.sum[1];
}

template <class Sample>
double KWeighting::filter_all(const Sample* samples, std::size_t frames) {
    if (channels_ == 1) {
        return filter<1>(pairs_[0], samples, frames);
    }
    if (channels_ == kLanes) {
        return filter<kLanes>(pairs_[0], samples, frames);
    }
    double sum = 0;
    for (std::size_t pair = 0; pair < pairs_.size(); ++pair) {
        sum += filter<0>(pairs_[pair], samples + pair * kLanes, frames);
    }
    return sum;
}

double KWeighting::energy(const float* samples, std::size_t frames) {
    return filter_all(samples, frames);
}

double KWeighting::energy(const double* samples, std::size_t frames) {
    return filter_all(samples, frames);
}

KWeighting KWeighting::fresh() const {
    KWeighting filters = *this;
    for (Memory& memory : filters.pairs_) {
        const Pair weights = memory.weights;
        memory = Memory();
        memory.weights = weights;
    }
    return filters;
}

KWeighting::Energies KWeighting::energies(KWeighting& first,
                                          const float* samples_of_first,
                                          KWeighting& second,
                                          const float* samples_of_second,
                                          std::size_t frames) {
    const std::size_t channels = first.channels_;
    Memory& a = first.pairs_[0];
    Memory& b = second.pairs_[0];
    TwoRuns runs{samples_of_first, samples_of_second, frames, {}};
    double(&memory)[kValues][2 * kLanes] = runs.memory;
    for (std::size_t value = 0; value < kValues; ++value) {
        for (std::size_t channel = 0; channel < channels; ++channel) {
            memory[value][channel] = a.values[value][channel];
            memory[value][channels + channel] = b.values[value][channel];
        }
    }
    if (channels == 1) {
        filter_mono_runs(first.shelf_, first.high_pass_, runs);
    } else {
        filter_stereo_runs(first.shelf_, first.high_pass_, runs);
    }
    Energies energies{0, 0};
    for (std::size_t channel = 0; channel < channels; ++channel) {
        for (std::size_t value = 0; value < kValues; ++value) {
            a.values[value][channel] = audible(memory[value][channel]);
            b.values[value][channel] = audible(memory[value][channels + channel]);
        }
        energies.first += a.weights[channel] * runs.sums[channel];
        energies.second += b.weights[channel] * runs.sums[channels + channel];
    }
    return energies;
}

}  // namespace quorvane
