#pragma once

#include "cli/facts/run_facts.h"
#include "cli/metadata/byte_file.h"

namespace cli {

/**
 * Puts the loudness of the new audio into the content of a `bext` chunk of version 2 or later;
 * null: "not set". Shorter and older chunks stay as they are.
 */
void refresh_broadcast_loudness(Bytes& chunk, const Loudness* loudness);

}  // namespace cli
