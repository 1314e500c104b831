#pragma once

#include <cstdint>
#include <sndfile.hh>
#include <string>

#include "Common/audio/sound_handle.h"

namespace quorvane {

class BufferedInput;

/** What is read and processed at a time where no result depends on it. */
constexpr long long kReadFrames = 16384;

/**
 * Opens an audio file. Both throw std::runtime_error with libsndfile's reason. (A handle's own test
 * for truth tells only that it was constructed.)
 */
SndfileHandle open_to_read(const std::string& path);
SndfileHandle open_to_write(const std::string& path, int format, int channels, int sample_rate_hz);

/** The same through a buffer, which must outlive the handle. */
SndfileHandle open_to_read(BufferedInput& input);

/** Opens what a program's own functions read. data is passed to them. Throws as the others do. */
SndfileHandle open_virtual(SF_VIRTUAL_IO functions, void* data);

/** The length, rate, channels and format of an open file. */
SF_INFO info_of(const SndfileHandle& file);

/** Opens a WAV or AIFF file that stands behind so many other bytes. Throws as the others do. */
SndfileHandle open_behind(const std::string& path, std::uint64_t bytes);

/**
 * For a source that cannot be read on: throws std::runtime_error with the library's reason alone,
 * since who asked knows the file by another name.
 */
[[noreturn]] void fail_read(const SoundHandle& handle, const std::string& path);

}  // namespace quorvane
