#pragma once

#include <sndfile.hh>
#include <string>

namespace cli {

/**
 * Opens an audio file. Both throw std::runtime_error with libsndfile's reason. (A handle's own test
 * for truth tells only that it was constructed.)
 */
SndfileHandle open_to_read(const std::string& path);
SndfileHandle open_to_write(const std::string& path, int format, int channels, int sample_rate_hz);

}  // namespace cli
