#pragma once

#include <functional>

#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/stream/stream.h"

namespace stream {

/**
 * A part of a pass that needs nothing of the parts before it: hands to end what it makes of some
 * frames, as many as it was given. first_frame is where they stand in the recording. May run on
 * either thread, two parts at a time.
 */
using Part =
    std::function<void(Receiver& end, long long first_frame, double* samples, long long frames)>;

/**
 * Brings a recording through parts into a file: reads most_frames at most from the source's
 * position on, and ends the writer. Parts hold whole units of the pacer, the last one but for its
 * end. Where a processor is free and both files hold plain samples, two parts are made at a time;
 * they are written in their order, so no bit depends on it. Throws what pump throws.
 */
void pump_parts(SoundSource& source,
                SoundWriter& writer,
                const Part& part,
                ProgressPacer&& pacer,
                long long most_frames = kToTheEnd,
                const LoopStyle& style = LoopStyle());

}  // namespace stream
