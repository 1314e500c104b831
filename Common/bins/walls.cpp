#include "Common/bins/walls.h"

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

bool apply_walls(const SoundHandle& input,
                 const SoundHandle& output,
                 const std::string& output_path,
                 int channels,
                 const BinGrid& grid,
                 const double* walls,
                 double* scratch,
                 CProgress progress) {
    for (int i = 0; i < grid.bins; ++i) {
        const long long frames = sf_readf_double(input.get(), scratch, grid.bin_frames);
        apply_ramp(scratch, frames, channels, walls[i],
                   (walls[i + 1] - walls[i]) / grid.bin_frames);
        if (!write_frames(output, output_path, scratch, frames)) {
            return false;
        }
        progress.show(grid.fraction_done(i));
    }
    return true;
}
