#pragma once

#include <functional>

#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/stream/stream.h"

namespace stream {

/**
 * A part of a pass that does not depend on earlier parts: processes frames and passes the same
 * number of them to end. first_frame is their position in the recording. May run on either thread,
 * two parts at a time.
 */
using Part =
    std::function<void(Receiver& end, long long first_frame, double* samples, long long frames)>;

/**
 * Processes a recording in parts and writes the result: reads at most most_frames frames from the
 * source's position on, and calls the writer's finish. Each part but the last is a whole number of
 * the pacer's units. If a processor is free and both files hold plain samples, two parts run at a
 * time; they are written in order, so the result is the same. Throws what pump throws.
 */
void pump_parts(SoundSource& source,
                SoundWriter& writer,
                const Part& part,
                ProgressPacer&& pacer,
                long long most_frames = kToTheEnd,
                const LoopStyle& style = LoopStyle());

}  // namespace stream
