#pragma once

/**
 * What is known of one bin of audio, a block of fixed length, 50 ms by default. All linear: full
 * scale is 1.0. Two minutes of audio are 2400 bins, so the fits and ramps that run over bins cost
 * next to nothing beside the passes over the samples.
 */
struct CBin {
    double gain;  // for the bin; 1.0 after measuring
    double peak;  // largest absolute sample, any channel
    double rms;
};
