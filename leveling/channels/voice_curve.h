#pragma once

#include <optional>
#include <vector>

#include "leveling/preparation/bin_levels.h"
#include "leveling/preparation/phrases.h"

namespace quorvane {

/** The phrases of one sound and the gains that make them even. */
struct VoiceCurve {
    Phrases phrases;
    std::vector<float> curve_db;

    bool has_speech() const { return !phrases.phrases.empty(); }
};

/** level_db: of the words behind the gains; none: as they are before. Without speech no curve. */
VoiceCurve voice_curve(const BinLevels& levels, std::optional<double> level_db);

}  // namespace quorvane
