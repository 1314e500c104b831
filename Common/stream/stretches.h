#pragma once

#include <vector>

#include "Common/stream/sound_source.h"
#include "Common/stream/stream.h"

namespace stream {

/** Frames of a recording, which go to a receiver of their own; none where there are fewer. */
struct Stretch {
    long long frames;
    Receiver* receiver;
};

/**
 * Hands each stretch to its receiver. The first begins at the source's position, the others follow;
 * what the recording has no frames for is left out. Receivers know nothing of each other: where a
 * processor is free and the file holds plain samples, the stretches of the recording's two halves
 * are taken side by side, each receiver's on one thread at a time. Afterwards the source's position
 * is anywhere. Throws what pump throws.
 */
void pump_stretches(SoundSource& source, const std::vector<Stretch>& stretches);

}  // namespace stream
