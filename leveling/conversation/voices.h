#pragma once

#include <cstddef>
#include <vector>

namespace quorvane {

/** Who speaks when in a conversation that was recorded on a track for each voice. */
struct Voices {
    std::vector<std::vector<bool>> speaks;  // by track and bin: the track's owner does
    // Of each track, dB: its owner's mean level; kSilence_db where the owner never speaks.
    std::vector<double> level_db;
    // By voice and track, dB: how far the voice is lower on that track than on its own.
    std::vector<std::vector<double>> spill_db;

    bool is_silent(std::size_t track) const;
};

/**
 * Finds who speaks, from the levels of all tracks alone, whatever the microphones' gains.
 *
 * The difference of two tracks' levels has one mode when the one owner speaks and another when the
 * other does; a threshold between them tells the two apart. Where one track wins against all
 * others, its owner speaks, which gives each voice's level and its spill into every other track.
 * From these follows what is to be expected on a track while its owner is silent: where it is
 * louder than that, its owner speaks, also while others do.
 *
 * levels_db: of each track, of bins of 50 ms on a common clock, all as many.
 */
Voices find_voices(const std::vector<std::vector<float>>& levels_db);

/** Whether anybody but the track's owner speaks, by bin. */
std::vector<bool> others_speak(const Voices& voices, std::size_t track);

}  // namespace quorvane
