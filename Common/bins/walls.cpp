#include "Common/bins/walls.h"

#include <algorithm>

namespace level_engine {

/*
 * Gain ramps by repeated addition: each sample's gain is the one before plus a step. The product of
 * the step and the sample's index would be closer to the straight line and would need no waiting,
 * but its last bits differ, and the files are compared to the last bit.
 */

namespace {

constexpr int kRampsTogether = 4;  // as many additions as a processor has under way at a time

/** Multiplies frames by a gain that grows by step after each; returns the gain after the last. */
double apply_ramp(double* samples, long long frames, int channels, double gain, double step) {
    if (channels == 1) {
        for (long long i = 0; i < frames; ++i) {
            samples[i] *= gain;
            gain += step;
        }
    } else if (channels == 2) {
        for (long long i = 0; i < 2 * frames; i += 2) {
            samples[i] *= gain;
            samples[i + 1] *= gain;
            gain += step;
        }
    } else {
        for (long long frame = 0; frame < frames; ++frame) {
            for (int channel = 0; channel < channels; ++channel) {
                *samples++ *= gain;
            }
            gain += step;
        }
    }
    return gain;
}

/**
 * The ramps of four whole bins, one behind the other, in two channels: a ramp's next gain waits for
 * the one before, so the four go along side by side. walls: the five that the bins lie between.
 */
void apply_four_ramps(double* samples, long long frames, const double* walls) {
    double gains[kRampsTogether];
    double steps[kRampsTogether];
    for (int b = 0; b < kRampsTogether; ++b) {
        gains[b] = walls[b];
        steps[b] = (walls[b + 1] - walls[b]) / static_cast<double>(frames);
    }
    for (long long i = 0; i < 2 * frames; i += 2) {
        for (int b = 0; b < kRampsTogether; ++b) {
            double* const frame = samples + 2 * frames * b + i;
            frame[0] *= gains[b];
            frame[1] *= gains[b];
            gains[b] += steps[b];
        }
    }
}

}  // namespace

WallRamps::WallRamps(int channels, const BinGrid& grid, const double* walls, stream::Receiver& next)
    : Stage(next), channels_(channels), grid_(grid), walls_(walls) {}

void WallRamps::process(double* samples, long long frames) {
    // A block may begin and end anywhere in a bin: gain_ carries the ramp over from call to call.
    long long done = 0;
    while (done < frames && bin_ < grid_.bins) {
        const long long together = static_cast<long long>(kRampsTogether) * grid_.bin_frames;
        if (frame_ == 0 && channels_ == 2 && frames - done >= together &&
            bin_ + kRampsTogether <= grid_.bins) {
            apply_four_ramps(samples + done * channels_, grid_.bin_frames, walls_ + bin_);
            bin_ += kRampsTogether;
            done += together;
            continue;
        }
        if (frame_ == 0) {
            gain_ = walls_[bin_];  // the sum of the steps misses the wall by rounding
        }
        const double step = (walls_[bin_ + 1] - walls_[bin_]) / grid_.bin_frames;
        const long long some = std::min(frames - done, grid_.bin_frames - frame_);
        gain_ = apply_ramp(samples + done * channels_, some, channels_, gain_, step);
        done += some;
        frame_ += some;
        if (frame_ == grid_.bin_frames) {
            frame_ = 0;
            ++bin_;
        }
    }
    if (done > 0) {
        next().process(samples, done);
    }
}

stream::Part wall_ramps(int channels, const BinGrid& grid, const double* walls) {
    return [=](stream::Receiver& end, long long first_frame, double* samples, long long frames) {
        const int bin = static_cast<int>(first_frame / grid.bin_frames);
        WallRamps(channels, grid.from(bin), walls + bin, end).process(samples, frames);
    };
}

}  // namespace level_engine
