#pragma once

#include <optional>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/** The level that a delivery target's rule names. */
enum class LevelKind { Loudness, Rms };

/**
 * What one place of publication asks of a file.
 *
 * The sources of the numbers: Apple, "Podcasts: Audio requirements"; the loudness normalisation
 * pages of Spotify and YouTube; EBU R 128 (2023); ATSC A/85 (2013); ACX, "Audio submission
 * requirements".
 */
struct Destination {
    std::string word;  // as --for takes it
    std::string name;  // as people know it
    LevelKind kind = LevelKind::Loudness;
    double mono_target = 0;    // LUFS, or dB RMS: what a file made for it aims at
    double other_target = 0;   // the same with two channels or more
    double lower_by = 0;       // what may be missing to the target, dB
    double higher_by = 0;      // what may be above it, dB
    double peak_limit_db = 0;  // true peak in dBTP, with an RMS level the sample peak in dBFS
    std::optional<double> noise_floor_db;  // the most that pauses may have, dB RMS
    bool room_tone = false;                // at both ends; checked, but not made

    std::string also = {};  // a second word for it that --for takes

    double target(int channels) const { return channels == 1 ? mono_target : other_target; }

    /** The file's level that the target is compared with. */
    double level_of(const Loudness& loudness) const;

    /** "−16 LUFS ±0.5, true peak up to −1 dBTP" */
    std::string asks(int channels) const;
};

/** All of them, in the order they are shown. */
const std::vector<Destination>& destinations();

/**
 * The one of that word; "apple" is the podcast, and "lufs=-18:tp=-1.5" a target of one's own: see
 * own_destination.h. None where the word means nothing.
 */
std::optional<Destination> find_destination(const std::string& word);

/** The words that --for takes, without second names. */
std::vector<std::string> destination_words();

/** The same with the second names after them. */
std::vector<std::string> all_destination_words();

/** The same in a sentence: "podcast (or apple), spotify". */
std::string listed_destinations();

/**
 * Limiting beyond this is heard as pumping and dullness, so a gain that needs it on more than
 * kMostLimitedShare of the time is not given.
 */
constexpr double kMostLimitingDb = 6;
constexpr double kMostLimitedShare = 0.01;

/** What a peak may read above a limit: the accuracy that limiting keeps, dB. */
constexpr double kPeakTolerance = 0.02;

/** A rule of a delivery target that a file does not meet. */
struct UnmetRule {
    std::string what;   // "loudness", "true peak", "peak", "level", "noise floor", "room tone"
    double by = 0;      // signed: how far above (+) or below (-) what is asked; infinite: silent
    std::string unit;   // "LU", "dB" or "s"
    std::string words;  // "2.4 LU too quiet"
};

/** The result of checking a file against one delivery target. */
struct DestinationCheck {
    Destination destination;
    std::vector<UnmetRule> misses;

    bool met() const { return misses.empty(); }

    /** "2.4 LU too quiet, true peak 0.6 dB too high" */
    std::string words() const;
};

/** What has a peak, but no block of this length, has no loudness yet. Seconds; ITU-R BS.1770. */
constexpr double kLeastMeasured_s = 0.4;

/** duration_s: of the file, where it is known. */
DestinationCheck check_destination(const Destination& destination,
                                   const Loudness& loudness,
                                   int channels,
                                   double duration_s = kLeastMeasured_s);

}  // namespace quorvane
