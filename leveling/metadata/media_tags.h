#pragma once

#include <string>

namespace quorvane {

/**
 * Adds to a file that FFmpeg's muxer wrote the tags of `from` that it leaves out: MP4's free-form
 * and further items, ASF's pictures, and the tags before and behind the packets of ADTS, WavPack
 * and True Audio. Gains for players are left out. `gapless` is MP4's iTunSMPB item, empty for none.
 * Throws std::runtime_error when the tags cannot be written.
 */
void copy_media_tags(const std::string& from,
                     const std::string& to,
                     const std::string& muxer,
                     const std::string& gapless);

}  // namespace quorvane
