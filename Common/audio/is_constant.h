#pragma once

#include "Common/audio/SoundFile.h"

/**
 * True when every sample equals the first frame's sample of its channel, exactly; also for a file
 * of no frames. Reads until the first block that holds another sample and leaves the file there.
 */
bool is_constant(SoundFile& file, SF_INFO info);
