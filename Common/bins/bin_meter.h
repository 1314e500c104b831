#pragma once

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "Common/bins/Bin.h"
#include "Common/bins/BinGrid.h"
#include "Common/bins/peak.h"
#include "Common/stream/stream.h"

namespace level_engine {

/*
 * The meter of the measuring passes: peak and RMS of every bin.
 *
 * A sum of doubles depends on the order of its terms, so a bin's samples are added one after
 * another from the front, which leaves the processor waiting for each addition (four or more
 * cycles) before it can begin the next. Meanwhile it adds to the sums of other
 * bins, which do not depend on this one. A maximum does not depend on the order, so the peak is
 * computed in vectors of any width (peak.h).
 */

/** Which rule a bin's RMS follows. */
enum class BinKind { kAllSamples, kLouderChannel };

/** The sums over the samples of a bin so far. */
struct BinSums {
    double left = 0.0;   // of the squares; of all samples where channels are taken together
    double right = 0.0;  // of the squares of the second channel
    double peak = 0.0;
    long long samples = 0;
};

/**
 * Each bin's sum waits for its next square, so kBinsTogether consecutive bins are summed side by
 * side, every sum in its own order.
 */
constexpr int kBinsTogether = 4;

/** A bin's RMS over all its samples, channels together. */
struct RmsOfAllSamples {
    static constexpr BinKind kKind = BinKind::kAllSamples;

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
    static constexpr BinKind kKind = BinKind::kLouderChannel;

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
 * Measures the bins of a recording. Where the rule takes the louder channel, one or two channels
 * are expected.
 */
template <class RmsRule>
class BinMeter : public stream::Receiver {
  public:
    /**
     * name: of the recording, for errors. bins receives grid.bins records, whose gains are 1.0, and
     * squares for each of them the sum of squares over all its samples, channels together.
     */
    BinMeter(
        const std::string& name, int channels, const BinGrid& grid, CBin* bins, double* squares)
        : name_(name), channels_(channels), grid_(grid), bins_(bins), squares_(squares) {}

    /** Throws std::runtime_error when a bin's sum of squares is beyond all numbers. */
    void process(double* samples, long long frames) override {
        while (frames > 0 && done_ < grid_.bins) {
            // Side by side as many as the block holds whole, up to four; either way each bin adds
            // the same squares in the same order.
            const long long whole =
                std::min<long long>(frames / grid_.bin_frames, grid_.bins - done_);
            if (sums_.samples == 0 && whole > 0) {
                const long long some = add_whole_bins(samples, whole) * grid_.bin_frames;
                samples += some * channels_;
                frames -= some;
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

    void finish() override {
        if (sums_.samples > 0) {
            close_bin();
        }
    }

    /** Frames of the bins so far. */
    long long frames() const { return frames_; }

    /** Whether every bin of the grid got its frames, the last one at least one. */
    bool complete() const { return done_ == grid_.bins; }

  private:
    /** Returns how many it took. */
    long long add_whole_bins(const double* samples, long long whole) {
        BinSums bins[kBinsTogether];
        const long long count = static_cast<long long>(grid_.bin_frames) * channels_;
        const int together = static_cast<int>(std::min<long long>(whole, kBinsTogether));
        switch (together) {
            case 4:
                RmsRule::template add<4>(bins, samples, count, channels_);
                break;
            case 3:
                RmsRule::template add<3>(bins, samples, count, channels_);
                break;
            case 2:
                RmsRule::template add<2>(bins, samples, count, channels_);
                break;
            default:
                RmsRule::template add<1>(bins, samples, count, channels_);
                break;
        }
        for (int b = 0; b < together; ++b) {
            sums_ = bins[b];
            close_bin();
        }
        return together;
    }

    void close_bin() {
        const double sum = sums_.left + sums_.right;
        if (!std::isfinite(sum)) {
            throw std::runtime_error(
                name_ + ": the samples around frame " +
                std::to_string(static_cast<long long>(done_) * grid_.bin_frames) +
                " are too large");
        }
        squares_[done_] = sum;
        bins_[done_++] = {1.0, sums_.peak, RmsRule::rms(sums_, channels_)};
        frames_ += sums_.samples / channels_;
        sums_ = BinSums();
    }

    std::string name_;
    int channels_;
    BinGrid grid_;
    CBin* bins_;
    double* squares_;
    int done_ = 0;
    long long frames_ = 0;
    BinSums sums_;
};

}  // namespace level_engine

using level_engine::BinKind;
using level_engine::BinMeter;
using level_engine::BinSums;
using level_engine::kBinsTogether;
using level_engine::RmsOfAllSamples;
using level_engine::RmsOfLouderChannel;
