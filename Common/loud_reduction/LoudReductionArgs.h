#pragma once

#include <string>

namespace level_engine {

/** The settings that both loud-reduction steps share; their defaults differ. Levels are in dB. */
struct LoudReductionArgs {
    double noise_floor_db = 0;
    double level_diff_db = 0;
    int attack_ms = 0;
    int release_ms = 0;
    int bin_size_ms = 0;
    std::string sound_file_in;
    std::string sound_file_out;
    std::string options_file;
};

}  // namespace level_engine

using level_engine::LoudReductionArgs;
