#pragma once

#include <optional>
#include <string>

#include "leveling/channels/layout.h"
#include "leveling/worker/stages.h"

/* What the stages ask of files with several channels. */

namespace quorvane {

/** Whether a sound's channels are more than one sound of one or two; use: as it was asked for. */
bool takes_channels_apart(const Work& work,
                          const std::string& sound,
                          std::optional<ChannelUse>& use);

/** What is known of a sound's channels; a decoded file does not keep a recorder's metadata. */
ChannelLayout layout_of(const Work& work, const std::string& sound);

/** Of a file with more than two channels; file: the result as libsndfile reads it. */
void measure_dialogue(Work& work, const std::string& file);

/** Notes the loudness of the dialogue in the terms of EBU R 128 s4. */
void note_dialogue(Work& work);

}  // namespace quorvane
