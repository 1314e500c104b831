#pragma once

#include <vector>

#include "Common/stream/sound_source.h"
#include "Common/stream/stream.h"

namespace stream {

/** Consecutive frames of a recording with a receiver of their own. */
struct Stretch {
    long long frames;
    Receiver* receiver;
};

/**
 * Passes each stretch to its receiver. The first begins at the source's position, the others follow
 * without gaps; stretches behind the recording's end are skipped. Receivers must not depend on each
 * other: if a processor is free and the file holds plain samples, the stretches of the recording's
 * two halves run side by side, each receiver on one thread at a time. Leaves the source's position
 * undefined. Throws what pump throws.
 */
void pump_stretches(SoundSource& source, const std::vector<Stretch>& stretches);

}  // namespace stream
