#pragma once

#include <string>

/** The settings that both loud-reduction steps share; their defaults differ. Levels are in dB. */
struct LoudReductionArgs {
    double noise_floor_db;
    double level_diff_db;
    int attack_ms;
    int release_ms;
    int bin_size_ms;
    std::string sound_file_in;
    std::string sound_file_out;
    std::string options_file;
};
