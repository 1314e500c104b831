#include "leveling/audio/loudness_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <type_traits>
#include <utility>

namespace quorvane {
namespace {

// ITU-R BS.1770: blocks of 400 ms, a new one each 100 ms (one stretch).
constexpr std::size_t kBlockStretches = 4;
// EBU Tech 3342: windows of 3 s, a new one each second.
constexpr std::size_t kWindowStretches = 30;
constexpr std::size_t kWindowStepStretches = 10;

// The high-pass forgets by exp(-2 pi 38 Hz t): to 1e-25 in this time.
constexpr double kSettleSeconds = 0.25;
constexpr std::size_t kLeastSettles = 8;  // in a run that is worth halving

constexpr double kOffset_db = -0.691;  // BS.1770-4: what makes a full-scale 1 kHz sine -3.01 LUFS
// BS.1770: blocks below it are not part of the programme.
constexpr double kAbsoluteGate_lufs = -70;
constexpr double kRelativeGate = 0.1;        // of a mean power: -10 LU
constexpr double kRelativeRangeGate = 0.01;  // -20 LU, EBU Tech 3342
// Tech 3342: the range is between these shares of the gated windows.
constexpr double kLowPercentile = 0.10;
constexpr double kHighPercentile = 0.95;

/** Of a K-weighted mean square: BS.1770's offset makes a 1 kHz sine read its level. */
double to_lufs(double power) {
    return power > 0 || std::isnan(power) ? kOffset_db + 10 * std::log10(power)
                                          : -std::numeric_limits<double>::infinity();
}

const double kAbsoluteGate = std::pow(10, (kAbsoluteGate_lufs - kOffset_db) / 10);  // as a power

/** The powers that are not below the absolute gate. */
std::vector<double> above_gate(std::vector<double> powers) {
    powers.erase(std::remove_if(powers.begin(), powers.end(),
                                [](double power) { return !(power >= kAbsoluteGate); }),
                 powers.end());
    return powers;
}

double mean(const double* values, std::size_t count) {
    return std::accumulate(values, values + count, 0.0) / static_cast<double>(count);
}

}  // namespace

EnergyLedger::EnergyLedger(std::int64_t stretch_frames,
                           const std::vector<std::int64_t>& cuts,
                           std::int64_t begin)
    : stretch_frames_(stretch_frames),
      cuts_(&cuts),
      end_(begin),
      cuts_before_(static_cast<std::size_t>(
          begin == 0 ? 0 : std::upper_bound(cuts.begin(), cuts.end(), begin) - cuts.begin())),
      between_cuts_(1) {}

std::int64_t EnergyLedger::frames_to_border() const {
    const std::int64_t stretch = stretch_frames_ - end_ % stretch_frames_;
    return next_cut() < cuts_->size() ? std::min(stretch, (*cuts_)[next_cut()] - end_) : stretch;
}

void EnergyLedger::add(double energy, std::int64_t frames) {
    end_ += frames;
    stretch_ += energy;
    between_cuts_.back() += energy;
    if (next_cut() < cuts_->size() && end_ == (*cuts_)[next_cut()]) {
        between_cuts_.push_back(0);
    }
    if (frames > 0 && end_ % stretch_frames_ == 0) {
        stretches_.push_back(stretch_);
        stretch_ = 0;
    }
}

void EnergyLedger::append(const EnergyLedger& next) {
    between_cuts_.back() += next.between_cuts_.front();
    between_cuts_.insert(between_cuts_.end(), next.between_cuts_.begin() + 1,
                         next.between_cuts_.end());
    const double under_way = stretch_;
    const std::size_t whole = stretches_.size();
    stretches_.insert(stretches_.end(), next.stretches_.begin(), next.stretches_.end());
    stretch_ = next.stretch_;
    // It ends in the next ledger, or further on.
    (stretches_.size() > whole ? stretches_[whole] : stretch_) += under_way;
    end_ = next.end_;
}

LoudnessMeter::LoudnessMeter(int channels,
                             int sample_rate_hz,
                             std::vector<std::int64_t> cuts,
                             std::int64_t begin,
                             const std::vector<double>& weights)
    : channels_(static_cast<std::size_t>(channels)),
      settle_frames_(static_cast<std::size_t>(kSettleSeconds * sample_rate_hz)),
      weighting_(channels, sample_rate_hz, weights),
      stretch_frames_(stretch_frames(sample_rate_hz)),
      cuts_(std::make_shared<const std::vector<std::int64_t>>(std::move(cuts))),
      ledger_(stretch_frames_, *cuts_, begin) {}

template <class Sample>
void LoudnessMeter::settle(const Sample* samples, std::size_t frames) {
    weighting_.energy(samples, frames);
}

template <class Sample>
void LoudnessMeter::add(const Sample* samples, std::size_t frames) {
    if constexpr (std::is_same_v<Sample, float>) {
        if (channels_ <= KWeighting::kLanes && frames >= kLeastSettles * settle_frames_) {
            const std::size_t done = add_halves(samples, frames);
            samples += done * channels_;
            frames -= done;
        }
    }
    while (frames > 0) {
        const std::size_t here =
            std::min(frames, static_cast<std::size_t>(ledger_.frames_to_border()));
        ledger_.add(weighting_.energy(samples, here), static_cast<std::int64_t>(here));
        samples += here * channels_;
        frames -= here;
    }
}

/**
 * The second half has filters of its own, which settle on what comes before it while the first half
 * is under way. Returns how many frames that were: one stays where both cannot be equally long.
 */
std::size_t LoudnessMeter::add_halves(const float* samples, std::size_t frames) {
    const std::size_t half = (frames + settle_frames_) / 2;
    const float* const behind = samples + (half - settle_frames_) * channels_;
    KWeighting weighting = weighting_.fresh();
    EnergyLedger ledger(stretch_frames_, *cuts_, ledger_.end() + static_cast<std::int64_t>(half));
    std::size_t settling = settle_frames_;
    for (std::size_t done = 0; done < half;) {
        const std::size_t here = std::min(
            {half - done, static_cast<std::size_t>(ledger_.frames_to_border()),
             settling > 0 ? settling : static_cast<std::size_t>(ledger.frames_to_border())});
        const KWeighting::Energies energies = KWeighting::energies(
            weighting_, samples + done * channels_, weighting, behind + done * channels_, here);
        ledger_.add(energies.first, static_cast<std::int64_t>(here));
        if (settling > 0) {
            settling -= here;
        } else {
            ledger.add(energies.second, static_cast<std::int64_t>(here));
        }
        done += here;
    }
    ledger_.append(ledger);
    weighting_ = weighting;
    return 2 * half - settle_frames_;
}

template void LoudnessMeter::settle(const float* samples, std::size_t frames);
template void LoudnessMeter::add(const float* samples, std::size_t frames);
template void LoudnessMeter::add(const double* samples, std::size_t frames);

void LoudnessMeter::append(const LoudnessMeter& next) {
    ledger_.append(next.ledger_);
}

/** The mean powers of all windows of so many stretches, one each `step` stretches. */
std::vector<double> LoudnessMeter::powers(std::size_t stretches, std::size_t step) const {
    const std::vector<double>& energies = ledger_.stretches();
    std::vector<double> powers;
    const double frames = static_cast<double>(stretches) * static_cast<double>(stretch_frames_);
    for (std::size_t end = (stretches + step - 1) / step * step; end <= energies.size();
         end += step) {
        const auto last = energies.rbegin() + static_cast<std::ptrdiff_t>(energies.size() - end);
        powers.push_back(std::accumulate(last, last + static_cast<std::ptrdiff_t>(stretches), 0.0) /
                         frames);
    }
    return powers;
}

double LoudnessMeter::integrated_lufs() const {
    const std::vector<double> blocks = above_gate(powers(kBlockStretches, 1));
    const double gate = kRelativeGate * mean(blocks.data(), blocks.size());
    double sum = 0;
    std::size_t count = 0;
    for (const double power : blocks) {
        if (power >= gate) {
            sum += power;
            ++count;
        }
    }
    return count == 0 ? to_lufs(0) : to_lufs(sum / static_cast<double>(count));
}

double LoudnessMeter::range_lu() const {
    std::vector<double> windows = above_gate(powers(kWindowStretches, kWindowStepStretches));
    std::sort(windows.begin(), windows.end());
    const double gate = kRelativeRangeGate * mean(windows.data(), windows.size());
    windows.erase(windows.begin(), std::lower_bound(windows.begin(), windows.end(), gate));
    if (windows.empty()) {
        return 0;
    }
    const auto percentile = [&](double share) {
        const double place = static_cast<double>(windows.size() - 1) * share;
        return windows[static_cast<std::size_t>(std::lround(place))];
    };
    return to_lufs(percentile(kHighPercentile)) - to_lufs(percentile(kLowPercentile));
}

double LoudnessMeter::greatest_momentary_lufs() const {
    double greatest = 0;
    for (const double power : powers(kBlockStretches, 1)) {
        greatest = std::max(greatest, power);
    }
    return to_lufs(greatest);
}

std::int64_t LoudnessMeter::stretch_frames(int sample_rate_hz) {
    return (sample_rate_hz + 5) / 10;
}

std::int64_t LoudnessMeter::block_frames(int sample_rate_hz) {
    return static_cast<std::int64_t>(kBlockStretches) * stretch_frames(sample_rate_hz);
}

double LoudnessMeter::window_lufs(std::int64_t begin, std::int64_t end) const {
    const auto index = [&](std::int64_t frame) {
        return std::lower_bound(cuts_->begin(), cuts_->end(), frame) - cuts_->begin() + 1;
    };
    const auto energies = ledger_.between_cuts().begin();
    const double energy = std::accumulate(energies + index(std::max<std::int64_t>(begin, 0)),
                                          energies + index(end), 0.0);
    return to_lufs(energy / static_cast<double>(end - begin));
}

}  // namespace quorvane
