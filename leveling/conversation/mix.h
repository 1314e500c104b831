#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "leveling/conversation/track_time.h"
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
    TrackTime time = {};
};

/**
 * Writes the sum of the tracks as a WAV file of floats: in stereo where one of them is, with a mono
 * track on both sides, and until the last one ends. Throws FileError where their sample rates
 * differ.
 */
void mix_tracks(const std::vector<MixedTrack>& tracks,
                const std::string& to,
                const std::function<void(double)>& progress);

/** How a mix is coded. */
struct MixFormat {
    int format = 0;           // libsndfile's number; 0: it does not write this
    int bits_per_second = 0;  // of a channel; 0: coded without loss
    bool is_aac = false;      // in MPEG-4, which FFmpeg's libraries write

    bool is_lossy() const { return bits_per_second > 0; }

    bool is_known() const { return format != 0 || is_aac; }
};

/**
 * The format of a mix by the extension of its name: with 24 bits, or the coding of `like`,
 * libsndfile's number, where that is the same container's and loses nothing.
 */
MixFormat mix_format(const std::string& extension, int like);

/**
 * Writes a mix to a file of a format, libsndfile's number, under a true-peak limiter unless it is
 * below the ceiling already.
 */
void write_mix(const std::string& from,
               const std::string& to,
               int format,
               std::optional<double> ceiling_dbtp);

}  // namespace quorvane
