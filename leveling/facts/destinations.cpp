#include "leveling/facts/destinations.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <cmath>

#include "leveling/facts/own_destination.h"

namespace quorvane {
namespace {

// Reports are typeset: the sign is as wide as the plus.
constexpr const char* kMinus = "−";

/** Seconds of room tone that an audiobook has before the first and after the last word. */
struct RoomTone {
    const char* where;
    double Loudness::*seconds;
    double least_s;
    double most_s;
};

constexpr RoomTone kRoomTones[] = {{"head", &Loudness::head_s, 0.5, 1.0},
                                   {"tail", &Loudness::tail_s, 1.0, 5.0}};
constexpr double kRoomToneStep = 0.1;  // s, how finely it is measured

/** "−16", "−22.5" */
std::string signed_text(double value) {
    return boost::algorithm::replace_all_copy(fmt::format("{:g}", value), "-", kMinus);
}

/** What is off by less than a tenth would read "0.0": it is named as a tenth. */
std::string distance_text(double distance, const std::string& unit) {
    return fmt::format("{:.1f} {}", std::max(std::fabs(distance), 0.1), unit);
}

/** off: dB or LU above the target. What lies within the tolerance is met. */
void check_level(const Destination& destination, double off, DestinationCheck& check) {
    const double outside = off > destination.higher_by   ? off - destination.higher_by
                           : off < -destination.lower_by ? off + destination.lower_by
                                                         : 0;
    if (outside == 0) {
        return;
    }
    const bool rms = destination.kind == LevelKind::Rms;
    const char* unit = rms ? "dB" : "LU";
    check.misses.push_back(
        {rms ? "level" : "loudness", outside, unit,
         fmt::format("{} too {}", distance_text(outside, unit), outside > 0 ? "loud" : "quiet")});
}

/** The distance that is told is the one to the limit itself, without the tolerance. */
void check_limit(
    const char* what, double value, double limit, double tolerance, DestinationCheck& check) {
    if (value > limit + tolerance) {
        check.misses.push_back(
            {what, value - limit, "dB",
             fmt::format("{} {} too high", what, distance_text(value - limit, "dB"))});
    }
}

/** Room tone at both ends is asked for as the levels are, but is a matter of cutting. */
void check_room_tone(const Loudness& loudness, DestinationCheck& check) {
    for (const RoomTone& tone : kRoomTones) {
        const double seconds = loudness.*tone.seconds;
        if (seconds < tone.least_s - kRoomToneStep / 2 ||
            seconds > tone.most_s + kRoomToneStep / 2) {
            const double by = seconds - (seconds < tone.least_s ? tone.least_s : tone.most_s);
            check.misses.push_back(
                {"room tone", by, "s",
                 fmt::format("{:.1f} s of room tone at the {} instead of {:g} to {:g} s", seconds,
                             tone.where, tone.least_s, tone.most_s)});
        }
    }
}

}  // namespace

const std::vector<Destination>& destinations() {
    using K = LevelKind;
    // Word, name, kind, targets in mono and else, tolerance below and above (LU or dB), limit of
    // the peak (dBTP, for RMS dBFS), noise floor (dBFS), room tone, second word; as the places
    // publish them.
    static const std::vector<Destination> table = {
        {"podcast", "Podcasts (Apple)", K::Loudness, -19, -16, 0.5, 0.5, -1, {}, false, "apple"},
        {"spotify", "Spotify", K::Loudness, -14, -14, 0.5, 0.5, -1, {}, false},
        {"youtube", "YouTube", K::Loudness, -14, -14, 0.5, 0.5, -1, {}, false},
        {"broadcast", "Radio and TV (EBU R 128)", K::Loudness, -23, -23, 0.2, 0.2, -1, {}, false},
        {"atsc", "US television (ATSC A/85)", K::Loudness, -24, -24, 0.5, 0.5, -2, {}, false},
        {"audiobook", "Audiobooks (ACX, Audible)", K::Rms, -20, -20, 3, 2, -3, -60.0, true},
    };
    return table;
}

std::optional<Destination> find_destination(const std::string& word) {
    for (const Destination& destination : destinations()) {
        if (destination.word == word || (!word.empty() && destination.also == word)) {
            return destination;
        }
    }
    return own_destination(word).destination;
}

std::vector<std::string> destination_words() {
    std::vector<std::string> words;
    for (const Destination& destination : destinations()) {
        words.push_back(destination.word);
    }
    return words;
}

std::vector<std::string> all_destination_words() {
    std::vector<std::string> words = destination_words();
    for (const Destination& destination : destinations()) {
        if (!destination.also.empty()) {
            words.push_back(destination.also);
        }
    }
    return words;
}

std::string listed_destinations() {
    std::vector<std::string> words;
    for (const Destination& destination : destinations()) {
        words.push_back(destination.also.empty()
                            ? destination.word
                            : fmt::format("{} (or {})", destination.word, destination.also));
    }
    return boost::algorithm::join(words, ", ");
}

double Destination::level_of(const Loudness& loudness) const {
    return kind == LevelKind::Rms ? loudness.rms_dbfs : loudness.integrated_lufs;
}

std::string Destination::asks(int channels) const {
    const double aim = target(channels);
    if (kind == LevelKind::Rms) {
        return fmt::format("RMS {} to {} dB, peak up to {} dBFS, noise floor up to {} dB RMS",
                           signed_text(aim - lower_by), signed_text(aim + higher_by),
                           signed_text(peak_limit_db), signed_text(noise_floor_db.value_or(0)));
    }
    return fmt::format("{} LUFS ±{:g}, true peak up to {} dBTP", signed_text(aim), lower_by,
                       signed_text(peak_limit_db));
}

std::string DestinationCheck::words() const {
    std::vector<std::string> parts;
    for (const UnmetRule& rule : misses) {
        parts.push_back(rule.words);
    }
    return boost::algorithm::join(parts, ", ");
}

DestinationCheck check_destination(const Destination& destination,
                                   const Loudness& loudness,
                                   int channels,
                                   double duration_s) {
    DestinationCheck check;
    check.destination = destination;
    const bool rms = destination.kind == LevelKind::Rms;
    const double level = destination.level_of(loudness);
    if (!std::isfinite(level)) {
        const bool too_short =
            std::isfinite(loudness.sample_peak_dbfs) && duration_s < kLeastMeasured_s;
        check.misses.push_back(
            {"loudness", level, rms ? "dB" : "LU",
             too_short ? fmt::format("too short to measure: needs {:g} s", kLeastMeasured_s)
             : std::isfinite(loudness.sample_peak_dbfs) ? std::string("too quiet to measure")
                                                        : std::string("silent")});
        return check;
    }
    check_level(destination, level - destination.target(channels), check);
    // Loudness targets limit the true peak; RMS targets limit the sample peak.
    check_limit(rms ? "peak" : "true peak",
                rms ? loudness.sample_peak_dbfs : loudness.true_peak_dbtp,
                destination.peak_limit_db, kPeakTolerance, check);
    if (destination.noise_floor_db) {
        check_limit("noise floor", loudness.pauses_dbfs, *destination.noise_floor_db, 0, check);
    }
    if (destination.room_tone) {
        check_room_tone(loudness, check);
    }
    return check;
}

}  // namespace quorvane
