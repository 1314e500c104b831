#pragma once

#include <string>
#include <vector>

/*
 * What a recording suffers from, as measured values. The sentences and the advice for people are
 * made from the code, the value and the detail elsewhere.
 */

namespace quorvane {

enum class Severity {
    Problem,  // listeners will notice it, and leveling cannot repair it
    Warning,  // worth a look before the recording is published
    Note      // good to know
};

/** From and to, in seconds of the recording. */
struct FindingPlace {
    double from_s = 0;
    double to_s = 0;
};

/** One fault or property of a recording. */
struct Finding {
    std::string code;  // stable, lower case with hyphens: "clipped", "side-silent"
    Severity severity = Severity::Note;
    double value = 0;  // what the code's measure gave
    std::string unit;
    std::vector<FindingPlace> places;  // at most 20: the longest ones, in order of time
    std::string detail;                // channel name or the like: "left", "right", "50 Hz"
};

enum class SpeechState {
    Measured,  // there is enough speech for levels
    TooShort,  // the recording is too short to measure its loudness: under 0.4 s
    NoSpeech   // nothing in it is speech
};

/** Speech of one speaker at one distance from the microphone. Levels in LUFS. */
struct SpeechPassage {
    double from_s = 0;
    double to_s = 0;
    double before_db = 0;
    double after_db = 0;  // minus infinity where the recording was only measured
};

/** The levels of the speech in a recording. */
struct SpeechLevels {
    SpeechState state = SpeechState::NoSpeech;
    double speech_s = 0;                  // all speech together
    int count = 0;                        // passages that were found
    std::vector<SpeechPassage> passages;  // at most 200: the longest ones, in order of time
    double span_before_db = 0;            // from the quietest passage to the loudest
    double span_after_db = 0;             // minus infinity where the recording was only measured
};

}  // namespace quorvane
