#include "cli/audio/loudness_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

namespace cli {
namespace {

constexpr std::size_t kLanes = 2;
constexpr std::size_t kBlockTenths = 4;
constexpr std::size_t kWindowTenths = 30;
constexpr std::int64_t kWindowStepTenths = 10;

constexpr double kOffset_db = -0.691;  // BS.1770-4: what makes a full-scale 1 kHz sine -3.01 LUFS
constexpr double kAbsoluteGate_lufs = -70;
constexpr double kRelativeGate = 0.1;        // of a mean power: -10 LU
constexpr double kRelativeRangeGate = 0.01;  // -20 LU, EBU Tech 3342
constexpr double kLowPercentile = 0.10;
constexpr double kHighPercentile = 0.95;

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

void store(Vector vector, std::array<double, kLanes>& values) {
    for (std::size_t lane = 0; lane < kLanes; ++lane) {
        values[lane] = std::fabs(vector[lane]) < kNothing ? 0.0 : vector[lane];
    }
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

double to_lufs(double power) {
    return power > 0 || std::isnan(power) ? kOffset_db + 10 * std::log10(power)
                                          : -std::numeric_limits<double>::infinity();
}

const double kAbsoluteGate = std::pow(10, (kAbsoluteGate_lufs - kOffset_db) / 10);  // as a power

std::int64_t tenth_frames(int sample_rate_hz) {
    return (sample_rate_hz + 5) / 10;
}

double mean(const double* values, std::size_t count) {
    return std::accumulate(values, values + count, 0.0) / static_cast<double>(count);
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

KWeighting::KWeighting(int channels, int sample_rate_hz)
    : channels_(static_cast<std::size_t>(channels)),
      shelf_(shelf(sample_rate_hz)),
      high_pass_(high_pass(sample_rate_hz)),
      pairs_((channels_ + 1) / kLanes) {
    for (std::size_t channel = 0; channel < channels_; ++channel) {
        pairs_[channel / kLanes].weights[channel % kLanes] = channel_weight(channel, channels_);
    }
}

/**
 * Frames of two channels, or of one with silence beside it, that are kStride samples apart (0:
 * channels_). Of the sums only the last subtraction waits for the frame before, so that the
 * processor works on several frames and on both filters at once.
 */
template <std::size_t kStride, class Sample>
double KWeighting::filter(Memory& memory, const Sample* samples, std::size_t frames) const {
    const std::size_t stride = kStride == 0 ? channels_ : kStride;
    const bool both = kStride == kLanes || memory.weights[1] != 0;
    const Biquad s = shelf_;
    const Biquad h = high_pass_;
    Vector x1 = load(memory.x1), x2 = load(memory.x2);
    Vector y1 = load(memory.y1), y2 = load(memory.y2);
    Vector z1 = load(memory.z1), z2 = load(memory.z2);
    Vector sum = {};
    for (const Sample* at = samples; at != samples + frames * stride; at += stride) {
        const Vector x = {static_cast<double>(at[0]), both ? static_cast<double>(at[1]) : 0.0};
        const Vector y = (s.b0 * x + s.b1 * x1 + s.b2 * x2 - s.a2 * y2) - s.a1 * y1;
        const Vector z = (y + h.b1 * y1 + y2 - h.a2 * z2) - h.a1 * z1;
        sum += z * z;
        x2 = x1, x1 = x;
        y2 = y1, y1 = y;
        z2 = z1, z1 = z;
    }
    store(x1, memory.x1), store(x2, memory.x2);
    store(y1, memory.y1), store(y2, memory.y2);
    store(z1, memory.z1), store(z2, memory.z2);
    return memory.weights[0] * sum[0] + memory.weights[1] * sum[1];
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

LoudnessMeter::LoudnessMeter(int channels, int sample_rate_hz, std::vector<std::int64_t> cuts)
    : channels_(static_cast<std::size_t>(channels)),
      weighting_(channels, sample_rate_hz),
      tenth_frames_(tenth_frames(sample_rate_hz)),
      cuts_(std::move(cuts)),
      between_cuts_(1),
      tenths_(kWindowTenths) {}

template <class Sample>
void LoudnessMeter::add(const Sample* samples, std::size_t frames) {
    while (frames > 0) {
        std::int64_t end = (finished_ + 1) * tenth_frames_;
        const std::size_t passed = between_cuts_.size() - 1;
        if (passed < cuts_.size()) {
            end = std::min(end, cuts_[passed]);
        }
        const std::size_t here = std::min(frames, static_cast<std::size_t>(end - done_));
        const double energy = weighting_.energy(samples, here);
        samples += here * channels_;
        frames -= here;
        done_ += static_cast<std::int64_t>(here);
        tenth_ += energy;
        between_cuts_.back() += energy;
        if (passed < cuts_.size() && done_ == cuts_[passed]) {
            between_cuts_.push_back(0);
        }
        if (done_ == (finished_ + 1) * tenth_frames_) {
            finish_tenth();
        }
    }
}

template void LoudnessMeter::add(const float* samples, std::size_t frames);
template void LoudnessMeter::add(const double* samples, std::size_t frames);

void LoudnessMeter::finish_tenth() {
    tenths_[static_cast<std::size_t>(finished_) % kWindowTenths] = tenth_;
    tenth_ = 0;
    ++finished_;
    const auto power_of_last = [&](std::size_t count) {
        double sum = 0;
        for (std::size_t i = 0; i < count; ++i) {
            sum += tenths_[(static_cast<std::size_t>(finished_) + kWindowTenths - 1 - i) %
                           kWindowTenths];
        }
        return sum / (static_cast<double>(count) * static_cast<double>(tenth_frames_));
    };
    const auto keep = [](double power, std::vector<double>& where) {
        if (power >= kAbsoluteGate) {
            where.push_back(power);
        }
    };
    if (finished_ >= static_cast<std::int64_t>(kBlockTenths)) {
        const double power = power_of_last(kBlockTenths);
        greatest_block_ = std::max(greatest_block_, power);
        keep(power, blocks_);
    }
    if (finished_ >= static_cast<std::int64_t>(kWindowTenths) &&
        finished_ % kWindowStepTenths == 0) {
        keep(power_of_last(kWindowTenths), short_windows_);
    }
}

double LoudnessMeter::integrated_lufs() const {
    const double gate = kRelativeGate * mean(blocks_.data(), blocks_.size());
    double sum = 0;
    std::size_t count = 0;
    for (const double power : blocks_) {
        if (power >= gate) {
            sum += power;
            ++count;
        }
    }
    return count == 0 ? to_lufs(0) : to_lufs(sum / static_cast<double>(count));
}

double LoudnessMeter::range_lu() const {
    std::vector<double> powers = short_windows_;
    std::sort(powers.begin(), powers.end());
    const double gate = kRelativeRangeGate * mean(powers.data(), powers.size());
    powers.erase(powers.begin(), std::lower_bound(powers.begin(), powers.end(), gate));
    if (powers.empty()) {
        return 0;
    }
    const auto percentile = [&](double share) {
        const double place = static_cast<double>(powers.size() - 1) * share;
        return powers[static_cast<std::size_t>(std::lround(place))];
    };
    return to_lufs(percentile(kHighPercentile)) - to_lufs(percentile(kLowPercentile));
}

double LoudnessMeter::greatest_momentary_lufs() const {
    return to_lufs(greatest_block_);
}

std::int64_t LoudnessMeter::block_frames(int sample_rate_hz) {
    return static_cast<std::int64_t>(kBlockTenths) * tenth_frames(sample_rate_hz);
}

double LoudnessMeter::window_lufs(std::int64_t begin, std::int64_t end) const {
    const auto index = [&](std::int64_t frame) {
        return std::lower_bound(cuts_.begin(), cuts_.end(), frame) - cuts_.begin() + 1;
    };
    const double energy =
        std::accumulate(between_cuts_.begin() + index(std::max<std::int64_t>(begin, 0)),
                        between_cuts_.begin() + index(end), 0.0);
    return to_lufs(energy / static_cast<double>(end - begin));
}

}  // namespace cli
