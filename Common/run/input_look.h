#pragma once

#include <sndfile.h>

#include <string>

#include "Common/audio/SoundFile.h"

namespace level_engine {

/*
 * What a run finds out about its input before the first step.
 */

/** Notes that a file ended before its header's end; to be called behind the last read. */
void note_frames_missing(SoundFile& file, const SF_INFO& info);

/** Notes, of a file's first frames, a sample that is not finite, and frames that are not there. */
void note_odd_samples(SoundFile& file, const SF_INFO& info, long long frames);

/** Whether the first frame is all zero: a constant recording is then silent. */
bool begins_with_zero(SoundFile& file, const SF_INFO& info);

/**
 * Throws std::runtime_error for a format that the library reads but does not write. bit_depth: of
 * the output, 0 for the input's encoding.
 */
void require_writable_format(const std::string& path, SF_INFO info, int bit_depth);

}  // namespace level_engine

using level_engine::begins_with_zero;
using level_engine::note_frames_missing;
using level_engine::note_odd_samples;
using level_engine::require_writable_format;
