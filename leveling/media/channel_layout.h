#pragma once

#include <sndfile.hh>
#include <string>

#include "leveling/media/handles.h"

namespace quorvane::media {

/** FFmpeg's name of a layout, such as "5.1(side)"; empty where the channels have no places. */
std::string layout_name(const AVChannelLayout& layout);

/**
 * The surrounds of 5.1 and the like are called side or back channels; some encoders know one name
 * alone. The other name of such a layout; empty where it has none.
 */
std::string other_name_of(const std::string& layout);

/** Gives a file that is being written the places of a layout of more than two channels. */
void name_places(const AVChannelLayout& layout, SndfileHandle& file);

}  // namespace quorvane::media
