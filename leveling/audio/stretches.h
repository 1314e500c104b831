#pragma once

#include <functional>
#include <string>
#include <vector>

namespace quorvane {

/** A part of a recording. */
struct Stretch {
    double from_s = 0;
    double seconds = 0;
};

/** Interleaved samples, full scale 1.0. */
struct Samples {
    int sample_rate_hz = 0;
    int channels = 0;
    std::vector<double> values;
};

/** Reads the stretches of a file's sound, one behind the other. Throws std::exception. */
using StretchReader =
    std::function<Samples(const std::string& path, const std::vector<Stretch>& stretches)>;

/**
 * The reader for files of libsndfile's formats. A stretch that reaches beyond the end is filled up
 * with silence. Throws std::runtime_error where the file cannot be read or no stretch has sound.
 */
Samples read_stretches(const std::string& path, const std::vector<Stretch>& stretches);

}  // namespace quorvane
