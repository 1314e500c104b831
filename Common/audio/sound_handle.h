#pragma once

#include <sndfile.h>

#include <boost/shared_ptr.hpp>
#include <string>

namespace level_engine {

/** A libsndfile handle that closes its file when the last owner releases it. */
using SoundHandle = boost::shared_ptr<SNDFILE>;

/**
 * Opens a sound file for reading and fills info, or for writing with info's format, channel count
 * and sample rate. Null on failure: sound_open_reason has the library's reason.
 */
SoundHandle open_sound_for_reading(const std::string& path, SF_INFO& info);
SoundHandle open_sound_for_writing(const std::string& path, SF_INFO& info);

/**
 * Whether a header's number of frames is a promise. One without a length gives the library's
 * largest number, and an MPEG stream without a count of its frames has an estimate.
 */
bool promises_length(const SF_INFO& info);

/** Why the last opening failed, "" when it did not. */
const std::string& sound_open_reason();

/**
 * Why the last write fell short, for errors that carry only file and counts. What noticed it keeps
 * the reason while the file is still open.
 */
void keep_sound_write_reason(const std::string& reason);
const std::string& sound_write_reason();

/**
 * Closes a file at once, even if the handle has other owners; none may use it afterwards. Returns
 * libsndfile's error number, 0 on success.
 */
int close_sound(SoundHandle& handle);

/** The library's names of a format's container and encoding: "WAV (Microsoft)/Signed 16 bit PCM".
 */
std::string format_name(int format, const char* between = "/");

}  // namespace level_engine

using level_engine::close_sound;
using level_engine::format_name;
using level_engine::keep_sound_write_reason;
using level_engine::open_sound_for_reading;
using level_engine::open_sound_for_writing;
using level_engine::promises_length;
using level_engine::sound_open_reason;
using level_engine::sound_write_reason;
using level_engine::SoundHandle;
