#pragma once

#include <sndfile.h>

#include <boost/shared_ptr.hpp>
#include <string>

/** A libsndfile handle that closes its file when the last owner lets go. */
using SoundHandle = boost::shared_ptr<SNDFILE>;

/**
 * Opens a sound file for reading and fills info, or for writing with info's format, channel count
 * and sample rate. Null on failure: sf_strerror(nullptr) has the reason.
 */
SoundHandle open_sound_for_reading(const std::string& path, SF_INFO& info);
SoundHandle open_sound_for_writing(const std::string& path, SF_INFO& info);

/**
 * Writes frames of interleaved samples. False when fewer were written: the standard error stream
 * then names the file and the cause.
 */
bool write_frames(const SoundHandle& handle,
                  const std::string& path,
                  const double* samples,
                  long long frames);

/** "WAV (Microsoft)/Signed 16 bit PCM": the library's names of a format's container and encoding.
 */
std::string format_name(int format);
