#include "Common/bins/walls.h"

#include <algorithm>

namespace {

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

}  // namespace

WallRamps::WallRamps(int channels, const BinGrid& grid, const double* walls, stream::Receiver& next)
    : Stage(next), channels_(channels), grid_(grid), walls_(walls) {}

void WallRamps::take(double* samples, long long frames) {
    long long done = 0;
    while (done < frames && bin_ < grid_.bins) {
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
        next().take(samples, done);
    }
}
