#pragma once

#include <cstdint>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * Adds a finding for a source that was coded with loss at so low a bit rate that its artefacts are
 * likely to be heard. Listening tests rank codecs very differently at one rate (G. A. Soulodre et
 * al., "Subjective evaluation of state-of-the-art two-channel audio codecs", JAES 46 (1998)), so
 * each has a limit of its own, below the rates that its makers recommend for speech.
 */
void add_source_coding(std::int64_t input_bytes, FileFacts& facts);

}  // namespace quorvane
