#pragma once

#include <functional>
#include <string>
#include <vector>

#include "leveling/preparation/sections.h"

namespace quorvane {

/** A track with its gains, as it goes into the mix. */
struct MixedTrack {
    std::string recording;
    std::vector<Section> high_pass;
    std::vector<float> curve_db;
    long long bin_frames = 0;
    int channels = 0;
    int sample_rate_hz = 0;
};

/**
 * Writes the sum of the tracks as a WAV file of floats: in stereo where one of them is, with a mono
 * track on both sides, and as long as the longest. Throws FileError where their sample rates
 * differ.
 */
void mix_tracks(const std::vector<MixedTrack>& tracks,
                const std::string& to,
                const std::function<void(double)>& progress);

/**
 * Writes a mix to a file of its final format, libsndfile's number, under a true-peak limiter of
 * -1 dBTP unless it is below that already.
 */
enum class Limiting { Apply, None };
void write_mix(const std::string& from, const std::string& to, int format, Limiting limiting);

/**
 * The format of a mix by the extension of its name: with 24 bits, or the coding of `like` where
 * that is the same container's. 0 where a mix cannot be written so.
 */
int mix_format(const std::string& extension, int like);

}  // namespace quorvane
