#pragma once

#include <string>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/** The loudness over time before and after, with the passages behind it, as HTML. */
std::string loudness_figure(const FileFacts& facts);

/**
 * The waveform before and after with the passages behind it, the gain over it and a mark for each
 * place of a finding. "" where no waveform was measured.
 */
std::string waveform_figure(const FileFacts& facts);

/** A lane of a conversation: the waveform of a track with its gain, without words around it. */
std::string waveform_lane(const FileFacts& facts);

/** The gain over time with what the whole recording got for its final level, in dB. */
Curve total_gain(const FileFacts& facts);

}  // namespace quorvane
