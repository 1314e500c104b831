#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"
#include "leveling/findings/sound_profile.h"

namespace quorvane {

/**
 * Judges what the profile of a recording shows: adds its findings to the facts, and the passages of
 * its speech, whose levels add_results() fills in.
 */
void add_findings(const SoundProfile& profile, FileFacts& facts);

/**
 * What is known at the end of the work on a file: the levels of the passages before and after, what
 * leveling raised, and how its source was coded. input_bytes: the size of the file. Drops what only
 * this needs, and puts the gravest finding first.
 */
void add_results(std::int64_t input_bytes, FileFacts& facts);

}  // namespace quorvane
