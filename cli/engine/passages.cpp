#include "cli/engine/passages.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <limits>
#include <utility>
#include <vector>

namespace cli {
namespace {

constexpr const char* kCues = "_06.clt";
constexpr const char* kLevels = "_07.txt";
constexpr const char* kGains = "_08.txt";
constexpr const char* kSmoothedGains = "_09.txt";
constexpr double kBinSeconds = 0.05;
constexpr double kNoLevel = -200;  // written for a passage without a sound above the gate
constexpr std::size_t kMostPoints = 1200;

double to_db(double gain) {
    return gain > 0 ? 20 * std::log10(gain) : -std::numeric_limits<double>::infinity();
}

std::vector<double> numbers(const std::string& path) {
    std::ifstream in(path);
    std::vector<double> values;
    for (double value = 0; in >> value;) {
        values.push_back(value);
    }
    return values;
}

struct Cues {
    double rate = 0;
    std::vector<double> frames;
};

/**
 * After two lines of header: the sample rate, then for each cue its frame, a "0" and blank lines.
 */
Cues read_cues(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    Cues cues;
    std::string line;
    std::getline(in, line);
    std::getline(in, line);
    in >> cues.rate;
    for (double frame = 0, zero = 0; in >> frame >> zero;) {
        cues.frames.push_back(frame);
    }
    return cues;
}

/** At most kMostPoints of the values, each the mean of its neighbours. */
Curve thin(const std::vector<double>& values) {
    const std::size_t group = (values.size() + kMostPoints - 1) / kMostPoints;
    Curve curve{kBinSeconds * static_cast<double>(group), {}};
    for (std::size_t start = 0; start < values.size(); start += group) {
        const std::size_t end = std::min(values.size(), start + group);
        double sum = 0;
        for (std::size_t i = start; i < end; ++i) {
            sum += values[i];
        }
        curve.values.push_back(sum / static_cast<double>(end - start));
    }
    return curve;
}

}  // namespace

KeptFiles::KeptFiles(std::string base, std::string folder)
    : base_(std::move(base)), folder_(std::move(folder)) {
    std::filesystem::create_directories(folder_);
}

void KeptFiles::keep() {
    // A link shows what is written to the file after it was made, too.
    for (const char* name : {kCues, kLevels, kGains, kSmoothedGains}) {
        (void)!link((base_ + name).c_str(), kept(name).c_str());
    }
}

std::optional<Leveling> KeptFiles::read(std::int64_t frames) const {
    const Cues cues = read_cues(kept(kCues));
    const std::vector<double> levels = numbers(kept(kLevels));
    const std::vector<double> gains = numbers(kept(kGains));
    std::vector<double> curve = numbers(kept(kSmoothedGains));
    if (cues.rate <= 0 || levels.empty() || gains.empty() || curve.empty()) {
        return std::nullopt;
    }

    Leveling leveling;
    const double bin_frames = std::floor(cues.rate * kBinSeconds);
    double start = 0;
    for (std::size_t i = 0; i < levels.size(); ++i) {
        const double end = i < cues.frames.size()
                               ? std::round(cues.frames[i] / bin_frames) * bin_frames
                               : static_cast<double>(frames);
        const std::size_t bin =
            std::min(gains.size() - 1, static_cast<std::size_t>(start / bin_frames));
        if (end > start) {
            leveling.passages.push_back(
                {start / cues.rate, end / cues.rate,
                 levels[i] <= kNoLevel ? -std::numeric_limits<double>::infinity() : levels[i],
                 to_db(gains[bin])});
        }
        start = end;
    }
    for (double& gain : curve) {
        gain = to_db(gain);
    }
    double sum = 0;
    for (double gain : curve) {
        sum += gain;
    }
    leveling.mean_gain_db = sum / static_cast<double>(curve.size());
    leveling.least_gain_db = *std::min_element(curve.begin(), curve.end());
    leveling.greatest_gain_db = *std::max_element(curve.begin(), curve.end());
    leveling.gain_db = thin(curve);
    return leveling;
}

}  // namespace cli
