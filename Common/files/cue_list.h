#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace level_engine {

/*
 * The cue list: the text file in which the segmentation writes where new segments begin.
 *
 *     0x03 0x20 "CueListTool 1.3 file - ..."   a line that names the format
 *     "Prefix="                                a line that stays as it is
 *     sample rate, Hz                          a line
 *     position, frames                         for each cue, in ascending order,
 *     "0" and three empty lines                four more lines
 *
 * A reader looks at the positions alone: three lines are passed over, then four after each
 * position, and the list ends at the first line that does not begin with a number.
 */
struct CueList {
    int sample_rate_hz = 0;
    std::vector<long long> frames;  // the first frame of each segment but the first
};

/** Writes the list; on an error the stream's state is not good. */
void write_cue_list(std::ostream& file, const CueList& cues);

/**
 * Reads a list; false when the file cannot be opened. An odd header leaves the rate at 0. A file
 * that opens and cannot be read to its end gives the cues in front, and problem, unless it is null,
 * receives path and cause; else "".
 */
bool read_cue_list(const std::string& path, CueList& cues, std::string* problem = nullptr);

/** The wall between bins of bin_frames frames that lies nearest to a frame; halves go upwards. */
long long nearest_wall(long long frame, int bin_frames);

}  // namespace level_engine

using level_engine::CueList;
using level_engine::nearest_wall;
using level_engine::read_cue_list;
using level_engine::write_cue_list;
