#pragma once

#include <optional>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * Fills in the levels of passages whose times are known, LUFS: of the tenths of a second in them
 * without those 10 dB under their mean (the relative gate of ITU-R BS.1770), and how far apart they
 * are. What is shorter than a second is a word or two, and counts for nothing there if there are
 * longer passages.
 */
void add_speech_levels(const std::optional<Loudness>& before,
                       const std::optional<Loudness>& after,
                       SpeechLevels& speech);

}  // namespace quorvane
