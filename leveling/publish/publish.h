#pragma once

#include <functional>
#include <string>

#include "leveling/facts/destinations.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * A coded file as it is read: by the decoder that the rest of the program uses, and by another one
 * where two decoders differ, as those of Opus do.
 */
struct Reading {
    std::string path;   // of a file that libsndfile reads
    std::string other;  // of a file with the other decoder's samples; empty where there is none
};

/**
 * Makes what is delivered from the rendered file, where that takes an encoder, and gives how it
 * reads. Called once for each try.
 */
using Encode = std::function<Reading(const std::string& rendered)>;

/** The delivered file, what was done to it, and its measurement. */
struct Published {
    std::string path;
    Publishing facts;
    Loudness after;
};

/**
 * Brings an audio file to a destination: one constant gain and a true-peak limiter, solved
 * together, as limiting lowers the level. A trial runs the limiter over the file and measures what
 * comes out without writing it; the secant method between two trials gives the next gain, until the
 * level is within a twentieth of a dB. Then the file is written (in the format of `from`, with the
 * same frames), encoded if it has to be, and measured as it will be delivered; where its true peak
 * exceeds the limit, by rounding or by coding with loss, the ceiling is lowered by the excess and
 * it is written again.
 *
 * A file that already stands within a tenth of a dB is delivered as it is, and so is silence. Where
 * an audiobook's pauses would become too loud, it aims lower, as far as the destination allows.
 *
 * @param from  the leveled audio; it is only read
 * @param to    the file to write
 * @param progress  called with 0 to 1
 *
 * Throws std::runtime_error with the cause when a file cannot be read or written.
 */
Published publish(const Destination& destination,
                  const std::string& from,
                  const std::string& to,
                  const Encode& encode,
                  const std::function<void(double)>& progress);

}  // namespace quorvane
