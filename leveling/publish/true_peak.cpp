#include "leveling/publish/true_peak.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

#include "Common/audio/wide_loops.h"
#include "leveling/audio/sound_file.h"
#include "leveling/publish/sinc.h"

/*
 * The wave between the samples, by a windowed sinc at kPhases points per frame, and between these
 * by a parabola through three of them. Limiting needs the height within each frame, which meters
 * that give one number for a file do not tell. Most stretches are far below the ceiling: how much
 * any wave can rise above its samples follows from the filter's weights, and what cannot reach the
 * ceiling is not interpolated at all.
 */

namespace quorvane {
namespace {

/** The parabola rises at most so far above its points for a wave below half the sampling rate. */
constexpr double kParabolaRise = 1.08;

/** Adds to each of `count` sums the weighted samples from its own on, tap after tap. */
QUORVANE_WIDE_LOOP void add_weighted(const double* samples,
                                     const double* weights,
                                     std::size_t taps,
                                     std::size_t count,
                                     double* sums) {
    for (std::size_t tap = 0; tap < taps; ++tap) {
        const double weight = weights[tap];
        const double* from = samples + tap;
        for (std::size_t i = 0; i < count; ++i) {
            sums[i] += weight * from[i];
        }
    }
}

/** The greatest amplitude, in as many lanes as a wide vector has. */
QUORVANE_WIDE_LOOP double greatest_of(const double* samples, std::size_t count) {
    constexpr std::size_t kLanes = 8;
    std::array<double, kLanes> greatest{};
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            const double amplitude = std::fabs(samples[i + lane]);
            greatest[lane] = amplitude > greatest[lane] ? amplitude : greatest[lane];
        }
    }
    for (; i < count; ++i) {
        greatest[0] = std::max(greatest[0], std::fabs(samples[i]));
    }
    return *std::max_element(greatest.begin(), greatest.end());
}

/** The height of the vertex where the middle one is the greatest, else that of the middle. */
double vertex(double before, double middle, double after) {
    const double bend = before - 2 * middle + after;
    if (middle < before || middle < after || bend >= 0) {
        return middle;
    }
    const double slope = before - after;
    return middle - slope * slope / (8 * bend);
}

}  // namespace

TruePeakFinder::TruePeakFinder(int channels, double unnoticed)
    : channels_(static_cast<std::size_t>(channels)), unnoticed_(unnoticed) {
    for (std::size_t phase = 0; phase < kPhases; ++phase) {
        auto& weights = weights_[phase];
        weights = sinc_weights(static_cast<double>(phase) / kPhases, kTaps);
        // What samples of alternating signs, all at their most, would add up to.
        double sum = 0;
        for (double weight : weights) {
            sum += std::fabs(weight);
        }
        most_rise_ = std::max(most_rise_, sum * kParabolaRise);
    }
    history_.assign(channels_, std::vector<double>(kKept + kRun, 0.0));
    oversampled_.resize(kPhases * (kRun + 2));
}

void TruePeakFinder::find(const double* samples, std::size_t frames, double* peaks) {
    for (std::size_t done = 0; done < frames; done += kRun) {
        find_run(samples + done * channels_, std::min(kRun, frames - done), peaks + done);
    }
}

void TruePeakFinder::find_run(const double* samples, std::size_t frames, double* peaks) {
    std::fill(peaks, peaks + frames, 0.0);
    const bool looks = unnoticed_ < std::numeric_limits<double>::infinity();
    for (std::size_t channel = 0; channel < channels_; ++channel) {
        auto& history = history_[channel];
        // Where nothing is looked for, only what the next run has to know is kept.
        for (std::size_t i = looks || frames < kKept ? 0 : frames - kKept; i < frames; ++i) {
            history[kKept + i] = samples[i * channels_ + channel];
        }
        // Else the zeros remain: callers only need the peaks above the ceiling.
        if (looks && greatest_of(history.data(), kKept + frames) * most_rise_ > unnoticed_) {
            find_channel(channel, frames, peaks);
        }
        std::copy(history.begin() + static_cast<std::ptrdiff_t>(frames),
                  history.begin() + static_cast<std::ptrdiff_t>(frames + kKept), history.begin());
    }
}

void TruePeakFinder::find_channel(std::size_t channel, std::size_t frames, double* peaks) {
    // Sum i + 1 belongs to the frame of peaks[i]; the ones before and after it give the parabolas
    // at its ends their neighbours.
    const double* history = history_[channel].data();
    const std::size_t count = frames + 2;
    for (std::size_t phase = 0; phase < kPhases; ++phase) {
        std::array<double, kRun + 2> sums{};
        add_weighted(history, weights_[phase].data(), kTaps, count, sums.data());
        for (std::size_t i = 0; i < count; ++i) {
            oversampled_[i * kPhases + phase] = std::fabs(sums[i]);
        }
    }
    for (std::size_t i = 0; i < frames; ++i) {
        for (std::size_t at = (i + 1) * kPhases; at < (i + 2) * kPhases; ++at) {
            peaks[i] = std::max(
                peaks[i], vertex(oversampled_[at - 1], oversampled_[at], oversampled_[at + 1]));
        }
    }
}

namespace {

/** Gives every run of peaks of a file, the last ones too, and the finder to `take`. */
template <class Take>
void read_peaks(const std::string& path, double unnoticed, const Take& take) {
    SndfileHandle file = open_to_read(path);
    const auto channels = static_cast<std::size_t>(file.channels());
    TruePeakFinder finder(file.channels(), unnoticed);
    std::vector<double> samples(static_cast<std::size_t>(kReadFrames) * channels);
    std::vector<double> peaks(static_cast<std::size_t>(kReadFrames));
    const auto find = [&](std::size_t frames) {
        finder.find(samples.data(), frames, peaks.data());
        take(peaks.data(), frames, finder, file.samplerate());
    };
    for (sf_count_t got = 0; (got = file.readf(samples.data(), kReadFrames)) > 0;) {
        find(static_cast<std::size_t>(got));
    }
    if (file.error()) {
        throw std::runtime_error(file.strError());
    }
    std::fill(samples.begin(), samples.end(), 0.0);
    find(TruePeakFinder::kLatency);  // the last frames are told by now
}

}  // namespace

double true_peak_of(const std::string& path) {
    double greatest = 0;
    read_peaks(path, 0, [&](const double* peaks, std::size_t frames, TruePeakFinder& finder, int) {
        // Only what exceeds the greatest so far is looked at closely.
        greatest = std::max(greatest, *std::max_element(peaks, peaks + frames));
        finder.set_unnoticed(greatest);
    });
    return greatest;
}

std::size_t peak_block_frames(int sample_rate_hz) {
    return std::max<std::size_t>(1, static_cast<std::size_t>(kPeakBlockSeconds * sample_rate_hz));
}

std::vector<double> block_peaks_of(const std::string& path, double unnoticed) {
    std::vector<double> blocks;
    std::size_t frame = 0;  // of the finder's output, which comes kLatency frames late
    read_peaks(path, unnoticed,
               [&](const double* peaks, std::size_t frames, TruePeakFinder&, int sample_rate_hz) {
                   const std::size_t block_frames = peak_block_frames(sample_rate_hz);
                   for (std::size_t i = 0; i < frames; ++i, ++frame) {
                       const std::size_t block =
                           (std::max(frame, TruePeakFinder::kLatency) - TruePeakFinder::kLatency) /
                           block_frames;
                       if (block >= blocks.size()) {
                           blocks.resize(block + 1);
                       }
                       blocks[block] = std::max(blocks[block], peaks[i]);
                   }
               });
    return blocks;
}

}  // namespace quorvane
