#pragma once

/** What is known of one bin of audio. All linear. */
struct CBin {
    double gain;  // for the bin; 1.0 after measuring
    double peak;  // largest absolute sample, any channel
    double rms;
};
