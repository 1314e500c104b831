#pragma once

#include <cstdint>
#include <sndfile.hh>
#include <string>

/*
 * The last look at a file before it gets its name, and the question whether a header's length is
 * true. Both decode, since only that shows what another program will read.
 */

namespace quorvane {

/** What decoding a whole file gives. */
struct Scan {
    std::int64_t frames = 0;
    double peak = 0;     // greatest absolute sample, linear
    double rms = 0;      // over all samples of all channels, linear
    bool finite = true;  // no sample is infinite or not a number
};

// Bounds of the last look, linear: what lies beyond them was not leveled but spoilt.
constexpr double kMostPeak = 1.0 + 1e-6;
constexpr double kMostLossyPeak = 4.0;  // an encoder moves peaks by a few dB
// Of the engine alone. It does not limit quiet bins, so that a click in a pause may pass full scale
// in a float file; a peak above this is a fault.
constexpr double kMostEnginePeak = 2.0;

/** Throws std::runtime_error unless a leveled file has its input's rate and channels. */
void require_form_of(const SndfileHandle& leveled, int sample_rate_hz, int channels);

/** Throws std::runtime_error where a leveled file has samples that are not numbers. */
void require_numbers(const Scan& leveled);

/** Decodes all of a file that libsndfile reads. Throws std::runtime_error when it cannot. */
Scan scan(const std::string& path);

/** True when a number of frames from a header can be one at all. */
bool is_known_length(std::int64_t frames);

/** True when every frame that the header promises can be decoded. */
bool reads_through(const std::string& path);

/** True when the last frame that the header promises can be decoded. */
bool last_frame_is_there(const std::string& path);

}  // namespace quorvane
