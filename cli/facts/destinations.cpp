#include "cli/facts/destinations.h"

#include <fmt/format.h>

#include <cmath>

namespace cli {
namespace {

constexpr double kPodcastTolerance = 1.0;
constexpr double kBroadcastLoudness = -23.0;
constexpr double kBroadcastTolerance = 0.5;
constexpr double kTruePeakLimit = -1.0;
constexpr double kBookLoudest = -18.0;
constexpr double kBookQuietest = -23.0;
constexpr double kBookPeakLimit = -3.0;
constexpr double kBookPauseLimit = -60.0;

class Check {
  public:
    Check(const char* name, const char* asks) {
        result_.name = name;
        result_.asks = asks;
    }

    Check& within(double value, double low, double high, const char* unit) {
        if (!(value >= low)) {
            miss(low - value, unit, "too quiet");
        }
        if (value > high) {
            miss(value - high, unit, "too loud");
        }
        return *this;
    }

    Check& below(const char* what, double value, double limit) {
        if (value > limit) {
            miss(value - limit, "dB", fmt::format("too high in the {}", what));
        }
        return *this;
    }

    DestinationCheck done() {
        result_.met = result_.misses.empty();
        return result_;
    }

  private:
    // What is off by less than a tenth would read "0.0": it is named as a tenth.
    void miss(double distance, const char* unit, const std::string& how) {
        result_.misses.push_back(
            std::isfinite(distance)
                ? fmt::format("{:.1f} {} {}", std::fmax(distance, 0.1), unit, how)
                : std::string("silent"));
    }

    DestinationCheck result_;
};

}  // namespace

std::vector<DestinationCheck> check_destinations(const Loudness& loudness, int channels) {
    const auto podcast = [&](const char* name, const char* asks, double target, int for_channels) {
        DestinationCheck check = Check(name, asks)
                                     .within(loudness.integrated_lufs, target - kPodcastTolerance,
                                             target + kPodcastTolerance, "LU")
                                     .below("true peak", loudness.true_peak_dbtp, kTruePeakLimit)
                                     .done();
        check.other_channels = channels != for_channels;
        return check;
    };
    return {
        podcast("Podcast, stereo", "−16 LUFS ±1, true peak up to −1 dBTP", -16, 2),
        podcast("Podcast, mono", "−19 LUFS ±1, true peak up to −1 dBTP", -19, 1),
        Check("Broadcast, EBU R128", "−23 LUFS ±0.5, true peak up to −1 dBTP")
            .within(loudness.integrated_lufs, kBroadcastLoudness - kBroadcastTolerance,
                    kBroadcastLoudness + kBroadcastTolerance, "LU")
            .below("true peak", loudness.true_peak_dbtp, kTruePeakLimit)
            .done(),
        Check("Audiobook", "RMS −23 to −18 dB, peak up to −3 dB, pauses up to −60 dB")
            .within(loudness.rms_dbfs, kBookQuietest, kBookLoudest, "dB")
            .below("peak", loudness.sample_peak_dbfs, kBookPeakLimit)
            .below("pauses", loudness.pauses_dbfs, kBookPauseLimit)
            .done(),
    };
}

}  // namespace cli
