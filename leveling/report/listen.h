#pragma once

#include <string>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * A part of a page to listen with: up to nine seconds of the input and of the output, from where
 * their voices differ most, at equal loudness, with a switch between them. Both are in the page
 * itself, as Opus in Ogg at about 32 kbit/s a channel. Empty when the file was not leveled or
 * cannot be read here: a page is not worth less without it. It decodes what strangers wrote, so it
 * is for a worker.
 */
std::string listening_part(const FileFacts& facts);

}  // namespace quorvane
