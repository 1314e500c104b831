#pragma once

#include <string>
#include <vector>

#include "library/run/work.h"

namespace quorvane {

/**
 * Levels the tracks of one conversation. The results are in the order of the tracks. Throws
 * CallError, which names the track, and CancelledCall; then no result was written.
 */
std::vector<Results> level_together(const CallContext& call,
                                    const std::vector<quorvane_audio>& tracks,
                                    const std::vector<quorvane_buffer>& buffers);

/** The same of files; the mix, whose path may be empty, is the last result. */
std::vector<Results> level_files_together(const CallContext& call,
                                          const std::vector<std::string>& inputs,
                                          const std::vector<std::string>& outputs,
                                          const std::string& mix);

}  // namespace quorvane
