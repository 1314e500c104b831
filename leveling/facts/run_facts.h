#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "leveling/facts/finding.h"
#include "leveling/facts/json_numbers.h"

/*
 * The facts about a file are plain data: the worker fills them in, they travel to the parent as
 * JSON, and the table, the report and the JSON lines show them. Nothing here knows how they came
 * about.
 */

namespace quorvane {

/**
 * A curve over time in equal steps: value i belongs to the time i * step_s. Minus infinity is a gap
 * (silence).
 */
struct Curve {
    double step_s = 0;
    std::vector<double> values;
};

/** What was measured over one file. Levels of silence are minus infinity. */
struct Loudness {
    double integrated_lufs = 0;
    double range_lu = 0;
    double true_peak_dbtp = 0;
    double sample_peak_dbfs = 0;
    double rms_dbfs = 0;     // over all samples of all channels
    double pauses_dbfs = 0;  // RMS of the quietest half second
    double head_s = 0;       // the quiet before the first sound, in steps of 0.1 s
    double tail_s = 0;       // the quiet after the last sound
    Curve short_term_lufs;
    double greatest_momentary_lufs = 0;  // of 400 ms; for the file's own metadata, not in JSON
    Curve powers;  // K-weighted, of each tenth of a second; for the levels of speech, not in JSON
    Curve peaks_dbfs;  // the largest sample of each step, for a drawing of the waveform
};

/**
 * Returns the loudness of a file on demand, null where it is not measured. The call may
 * wait for a measurement that is under way, and throws what went wrong with it.
 */
using LoudnessSource = std::function<const Loudness*()>;

/** One stretch of steady loudness, as the segmentation found it. */
struct Passage {
    double from_s = 0;
    double to_s = 0;
    double level_db = 0;  // minus infinity: nothing in it was above the noise threshold
    double gain_db = 0;
};

/** The gain that leveling applied, before the normalisation to the target level. */
struct Leveling {
    double mean_gain_db = 0;
    double least_gain_db = 0;
    double greatest_gain_db = 0;
    Curve gain_db;
    std::vector<Passage> passages;
};

/** What was done around the engine, so that it could judge the recording. */
struct Preparation {
    double raised_db = 0;          // before leveling, to a fixed peak; below 0: lowered
    bool steep_high_pass = false;  // rumble louder than the voices was taken out
    int pauses = 0;                // long ones that were kept down
    double pauses_s = 0;           // all of them together
    int phrases = 0;               // that got a gain each; 0: the engine's curve or one gain
    bool even = false;             // it was even already: one constant gain
    double background_under_speech_db = 0;  // what fills the gaps, under the quietest phrase
    bool dithered = false;                  // in the one quantisation at the end
};

/** How a recorder's clock differs from that of the conversation's first track. */
struct TrackClock {
    double offset_s = 0;   // the track's time when the first track begins
    double drift_ppm = 0;  // above 0: the track's clock runs faster
    double certainty = 0;  // 0 to 1: the pieces that agree; 0: nothing shared was found
};

/** A file's part in a conversation whose tracks were leveled together. */
struct ConversationPart {
    int tracks = 0;                        // of the conversation
    bool mix = false;                      // the file is the mix of them
    double speaks_s = 0;                   // of a track: its owner; 0: never
    std::vector<FindingPlace> turns = {};  // of a track: when its owner speaks
    std::optional<TrackClock> clock = {};  // of a track that is not the first
    std::string first_track = {};          // an input, by which its lines are found; empty: unknown
};

/** What brought a leveled file to the destination it is for, in dB. */
struct Publishing {
    std::string destination;      // its word: "podcast"
    double gain_db = 0;           // the constant gain before the limiter
    double ceiling_dbtp = 0;      // of the limiter; below the limit where coding adds to peaks
    double most_limiting_db = 0;  // the greatest reduction
    double limited_share = 0;     // of the time, 0 to 1, reduced by over 6 dB, beside coded peaks
    bool held_back = false;       // more gain would have needed unsound limiting
};

enum class Outcome {
    Leveled,
    Copied,       // the engine handed the input back unchanged; cause says why
    Analyzed,     // measured only
    UpToDate,     // an earlier run made the output; the facts, without curves, are from then
    Skipped,      // on purpose; cause says why
    Planned,      // of a dry run: it would be worked on
    Failed,       // cause says why
    Damaged,      // --verify found a content that is not the recorded one; cause says whose
    Interrupted,  // stopped or never begun
};

const char* to_text(Outcome outcome);

/** Whether a run with such a file ends with a failure. */
bool is_failure(Outcome outcome);

/** Of a file whose sound lies in a container with other streams. */
struct MediaFacts {
    std::string container;  // "MP4"
    std::string codec;      // of the sound, FFmpeg's name: "aac"
    std::int64_t bit_rate_bps = 0;
    std::vector<int> audio_streams;  // leveled, or only measured; counted from 1
};

/** Everything known about one file once it is finished. */
struct FileFacts {
    std::string input;
    std::string output;  // empty when nothing is written
    Outcome outcome = Outcome::Interrupted;
    std::string cause;
    bool no_room = false;  // Failed, because a disk was full: another try may succeed
    // Skipped, because an earlier version's arithmetic made the output, which is kept.
    bool earlier_arithmetic = false;
    std::string format;  // as libsndfile names it, "WAV (Microsoft), Signed 16 bit PCM"
    std::optional<MediaFacts> media;
    int sample_rate_hz = 0;
    int channels = 0;
    std::int64_t frames = 0;
    std::int64_t bytes = 0;  // size of the input, as far as a dry run told it
    double elapsed_s = 0;
    std::optional<Loudness> before;
    std::optional<Loudness> after;
    std::optional<Leveling> leveling;
    std::optional<Preparation> preparation;  // none where the engine worked alone
    std::optional<Publishing> publishing;
    std::optional<ConversationPart> conversation;  // none where it was leveled by itself
    // Of the dialogue in the centre channel of a leveled surround file.
    std::optional<double> dialogue_lufs;
    std::optional<SpeechLevels> speech;  // of a file that was measured
    std::vector<Finding> findings;       // the gravest first
    std::vector<std::string> notes;      // what the user should know of a file that did not fail
    // Of "files" and "calls", the fences around the file's worker that the kernel did not give.
    std::vector<std::string> unfenced;

    /** Whether it is one of several tracks, which are not published by themselves. */
    bool is_track() const { return conversation && !conversation->mix; }

    double duration_s() const {
        return sample_rate_hz ? static_cast<double>(frames) / sample_rate_hz : 0;
    }
};

/** Makes the file one that failed for this reason. */
void set_failed(FileFacts& facts, const std::exception& error);

/** Whether curves over time are told too; they are most of a file's JSON. */
enum class Curves { Tell, Omit };

nlohmann::ordered_json to_json(const FileFacts& facts, Curves curves = Curves::Tell);

/** Drops the curves; strip_details drops passages and places as well. */
void strip_curves(FileFacts& facts);
void strip_details(FileFacts& facts);

/**
 * The reverse, for facts that a worker sent or a file holds. Throws nlohmann::json::exception on a
 * malformed text and on a status that is not one of ours, FactsError on impossible levels.
 */
FileFacts facts_from_json(const nlohmann::ordered_json& json);

/** Text that is safe in JSON: bytes that are no UTF-8 become replacement characters. */
std::string dump(const nlohmann::ordered_json& json);

}  // namespace quorvane
