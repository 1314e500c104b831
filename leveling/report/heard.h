#pragma once

#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * What was added to the leveling gain to give the whole recording its final level, in dB: the
 * median over time of how much louder each moment became, less the leveling gain there. Zero when
 * the file was not leveled or not measured.
 */
double final_level_db(const FileFacts& facts);

/**
 * The passages as a person hears them, with the final level in their gains: neighbours within 1 dB
 * become one, and what is shorter than 1.5 s becomes part of the neighbour whose gain is nearer.
 */
std::vector<Passage> heard_passages(const FileFacts& facts);

/** A stretch as the page shows it. Levels in LUFS, minus infinity where there is none. */
struct ShownPassage {
    double from_s = 0;
    double to_s = 0;
    double before_lufs = 0;
    double after_lufs = 0;
    double gain_db = 0;     // that it got in all
    double against_db = 0;  // of that, more or less than the others got
};

/**
 * The passages of speech with their levels before and after; where a recording has more than are
 * kept, or no speech was found, the passages of heard_passages(). Empty where it was only measured.
 */
std::vector<ShownPassage> shown_passages(const FileFacts& facts);

/** Where the gains of a stretch of so many seconds spread most: its start in seconds. */
double most_different_s(const FileFacts& facts, double seconds);

}  // namespace quorvane
