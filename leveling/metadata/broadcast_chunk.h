#pragma once

#include <sndfile.hh>

#include "leveling/facts/run_facts.h"
#include "leveling/metadata/byte_file.h"

namespace quorvane {

/**
 * The content of a `bext` chunk (EBU Tech 3285) as it belongs to the new audio: with one more line
 * of coding history, and from version 2 on the loudness, or "not set" where there is none; the
 * greatest momentary loudness where the chunk had one. What is too short to hold these fields
 * stays.
 */
Bytes with_new_loudness(Bytes chunk, const LoudnessSource& loudness, const SndfileHandle& audio);

/** Whether a `bext` chunk has fields for the loudness. */
bool tells_loudness(const Bytes& chunk);

}  // namespace quorvane
