#pragma once

#include <sndfile.hh>
#include <string>

#include "Common/audio/sound_handle.h"

namespace cli {

/**
 * Opens an audio file. Both throw std::runtime_error with libsndfile's reason. (A handle's own test
 * for truth tells only that it was constructed.)
 */
SndfileHandle open_to_read(const std::string& path);
SndfileHandle open_to_write(const std::string& path, int format, int channels, int sample_rate_hz);

/**
 * For a source that cannot be read on: throws std::runtime_error with the library's reason alone,
 * since who asked knows the file by another name.
 */
[[noreturn]] void fail_read(const SoundHandle& handle, const std::string& path);

}  // namespace cli
