#pragma once

#include <functional>
#include <optional>
#include <string>

#include "leveling/channels/layout.h"
#include "leveling/preparation/preparation.h"

namespace quorvane {

/** As many as are leveled in one file. */
constexpr int kMostFileChannels = 64;

/**
 * Levels a recording whose channels are more than a stereo sound, or are to be taken so. Without a
 * use, it is chosen: what a recorder's metadata call tracks, or what takes turns like tracks, are
 * tracks; a centre with speech is the dialogue; all else is one sound. The file is read twice,
 * whatever the number of channels. Throws std::runtime_error with the cause.
 */
PreparedResult level_channels(const PreparedRun& run,
                              const ChannelLayout& layout,
                              std::optional<ChannelUse> use,
                              const std::function<void(double)>& progress);

}  // namespace quorvane
