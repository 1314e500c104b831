#pragma once

#include <string>

#include "leveling/audio/stretches.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * A part of a page to listen with: about eight seconds of the input and of the output, from where
 * their voices differ most and at the gravest findings, at equal loudness, with a switch between
 * them. Both are in the page itself, as Opus in Ogg. Empty when the file was not leveled or cannot
 * be read here: a page is not worth less without it. It decodes what strangers wrote, so it is for
 * a worker.
 */
std::string listening_part(const FileFacts& facts, const StretchReader& read);

/** The script of a page with such a part; it stands at the page's end. */
std::string listening_script();

}  // namespace quorvane
