#pragma once

#include <string>

namespace quorvane {

/**
 * True for the name of a tag field, in any case of letters, that tells players how to change the
 * volume (ReplayGain, R128 gains of Opus, iTunNORM, undo data of gain programs). These belong to
 * the old loudness: on the leveled file they would undo the leveling.
 */
bool is_player_gain(const std::string& name);

}  // namespace quorvane
