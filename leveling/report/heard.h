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

/**
 * The mean of the passages' gains over their time, in dB: against it a passage was raised or
 * lowered, whatever constant gain the whole got.
 */
double mean_gain_db(const std::vector<Passage>& passages);

/** Where the gains of a stretch of so many seconds spread most: its start in seconds. */
double most_different_s(const FileFacts& facts, double seconds);

}  // namespace quorvane
