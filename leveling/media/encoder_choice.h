#pragma once

#include <cstdint>
#include <memory>

#include "leveling/media/media_file.h"
#include "leveling/media/sound_encoder.h"

namespace quorvane::media {

/**
 * An encoder for a sound of the file. Throws FileError, naming a codec that serves, where the
 * chosen one does not take the sound's channels.
 */
std::unique_ptr<SoundEncoder> make_encoder(const SoundEncoder::Request& request,
                                           const MediaFile& file,
                                           const Sound& sound);

}  // namespace quorvane::media
