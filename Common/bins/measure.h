#pragma once

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "Common/bins/Bin.h"
#include "Common/bins/BinGrid.h"
#include "Common/bins/peak.h"
#include "Common/stream/pump.h"

/*
 * The measuring pass: peak and RMS of every bin, and the mean level of those that are not quiet.
 *
 * A sum of doubles depends on the order of its terms, so a bin's samples are added one after
 * another from the front, which leaves the processor waiting for each addition (four or more
 * cycles) before it can begin the next. The wait is filled with other bins, whose sums have nothing
 * to do with this one. A maximum does not depend on the order, so the peak takes as many at a time
 * as it likes (peak.h).
 */

/** What of a bin has been summed up so far. */
struct BinSums {
    double left = 0.0;   // of the squares; of all samples where channels are taken together
    double right = 0.0;  // of the squares of the second channel
    double peak = 0.0;
    long long samples = 0;
};

/**
 * Each bin's sum waits for its next square: kTogether bins, one behind the other, are summed side
 * by side, every sum in its own order.
 */
constexpr int kBinsTogether = 4;

/** A bin's RMS over all its samples, channels together. */
struct RmsOfAllSamples {
    template <int kBins>
    static void add(BinSums* bins, const double* samples, long long count, int /*channels*/) {
        double sums[kBins];  // local copies stay in registers
        for (int b = 0; b < kBins; ++b) {
            sums[b] = bins[b].left;
        }
        for (long long i = 0; i < count; ++i) {
            for (int b = 0; b < kBins; ++b) {
                const double x = samples[b * count + i];
                sums[b] += x * x;
            }
        }
        for (int b = 0; b < kBins; ++b) {
            bins[b] = {sums[b], 0.0, peak_of(samples + b * count, count, bins[b].peak),
                       bins[b].samples + count};
        }
    }

    static double rms(const BinSums& bin, int /*channels*/) {
        return std::sqrt(bin.left / static_cast<double>(bin.samples));
    }
};

/** The RMS of a bin's louder channel: a loud voice on one side is as loud as one on both. */
struct RmsOfLouderChannel {
    /** For a mono recording the rules agree, bit by bit. */
    template <int kBins>
    static void add(BinSums* bins, const double* samples, long long count, int channels) {
        if (channels == 1) {
            RmsOfAllSamples::add<kBins>(bins, samples, count, channels);
            return;
        }
        double left[kBins];
        double right[kBins];
        for (int b = 0; b < kBins; ++b) {
            left[b] = bins[b].left;
            right[b] = bins[b].right;
        }
        for (long long i = 0; i + 1 < count; i += 2) {
            for (int b = 0; b < kBins; ++b) {
                const double* const frame = samples + b * count + i;
                left[b] += frame[0] * frame[0];
                right[b] += frame[1] * frame[1];
            }
        }
        for (int b = 0; b < kBins; ++b) {
            bins[b] = {left[b], right[b], peak_of(samples + b * count, count, bins[b].peak),
                       bins[b].samples + count};
        }
    }

    static double rms(const BinSums& bin, int channels) {
        const long long frame_count = bin.samples / channels;
        const double frames = static_cast<double>(frame_count);
        return std::max(std::sqrt(bin.left / frames), std::sqrt(bin.right / frames));
    }
};

/**
 * Measures the bins of a recording. A bin's RMS follows the rule, while the mean over the bins is
 * taken over all their samples, whatever the rule: a recording with one dead channel has bins that
 * are louder than its mean. Where the rule takes the louder channel, one or two are expected.
 */
template <class RmsRule>
class BinMeter : public stream::Receiver {
  public:
    /**
     * name: of the recording, for errors. bins receives grid.bins records with a gain of 1.0. A bin
     * counts for the mean when its RMS is above noise_floor (linear).
     */
    BinMeter(
        const std::string& name, int channels, const BinGrid& grid, double noise_floor, CBin* bins)
        : name_(name), channels_(channels), grid_(grid), noise_floor_(noise_floor), bins_(bins) {}

    /** Throws std::runtime_error when a bin's sum of squares is beyond all numbers. */
    void take(double* samples, long long frames) override {
        while (frames > 0 && done_ < grid_.bins) {
            // Side by side as long as the block holds that many whole bins, else one by one; either
            // way each bin adds the same squares in the same order.
            const long long together = static_cast<long long>(kBinsTogether) * grid_.bin_frames;
            if (sums_.samples == 0 && frames >= together && done_ + kBinsTogether <= grid_.bins) {
                add_whole_bins(samples);
                samples += together * channels_;
                frames -= together;
                continue;
            }
            const long long missing = grid_.bin_frames - sums_.samples / channels_;
            const long long some = std::min(frames, missing);
            RmsRule::template add<1>(&sums_, samples, some * channels_, channels_);
            samples += some * channels_;
            frames -= some;
            if (some == missing) {
                close_bin();
            }
        }
    }

    void end() override {
        if (sums_.samples > 0) {
            close_bin();
        }
    }

    /** Whether every bin of the grid got its frames, the last one at least one. */
    bool complete() const { return done_ == grid_.bins; }

    /** RMS over all samples of the bins above the noise floor; 0.0 without any. */
    double mean_rms() const {
        return total_samples_ == 0 ? 0.0 : std::sqrt(total_ / static_cast<double>(total_samples_));
    }

  private:
    void add_whole_bins(const double* samples) {
        BinSums bins[kBinsTogether];
        RmsRule::template add<kBinsTogether>(
            bins, samples, static_cast<long long>(grid_.bin_frames) * channels_, channels_);
        for (const BinSums& bin : bins) {
            sums_ = bin;
            close_bin();
        }
    }

    void close_bin() {
        const double sum = sums_.left + sums_.right;
        if (!std::isfinite(sum)) {
            throw std::runtime_error(
                name_ + ": the samples around frame " +
                std::to_string(static_cast<long long>(done_) * grid_.bin_frames) +
                " are too large");
        }
        const double rms = RmsRule::rms(sums_, channels_);
        bins_[done_++] = {1.0, sums_.peak, rms};
        // Squares are totalled, not levels: the mean weighs a short last bin by its length.
        if (rms > noise_floor_) {
            total_ += sum;
            total_samples_ += sums_.samples;
        }
        sums_ = BinSums();
    }

    std::string name_;
    int channels_;
    BinGrid grid_;
    double noise_floor_;
    CBin* bins_;
    int done_ = 0;
    BinSums sums_;
    double total_ = 0.0;
    long long total_samples_ = 0;
};

/**
 * Measures every bin of a source from its position on and returns the meter's mean RMS. Throws the
 * step's ss_sf_unexpected_eof when the source ends early.
 */
template <class Step, class RmsRule>
double measure_bins(stream::Source& source,
                    const BinGrid& grid,
                    double noise_floor,
                    CBin* bins,
                    progress_range::Range range) {
    BinMeter<RmsRule> meter(source.name(), source.info().channels, grid, noise_floor, bins);
    stream::pump(source, meter, grid.pace(range));
    if (!meter.complete()) {
        throw step_errors::sf_unexpected_eof<Step>(source.name());
    }
    return meter.mean_rms();
}
