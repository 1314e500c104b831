#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "Common/units.h"
#include "leveling/preparation/gain_curve.h"
#include "leveling/preparation/levels.h"
#include "leveling/preparation/phrases.h"
#include "leveling/preparation/timeline.h"

namespace {

using quorvane::BinLevels;
using quorvane::find_pauses;
using quorvane::find_phrases;
using quorvane::find_speech;
using quorvane::Phrases;
using quorvane::Stretch;

/** So many bins of syllables, five a second, that fall 20 dB from each to the next. */
void add_speech(std::vector<float>& levels_db, long long bins, float level_db) {
    for (long long i = 0; i < bins; ++i) {
        levels_db.push_back(level_db - static_cast<float>(i % 4 == 3 ? 20 : i % 4 * 2));
    }
}

void add_tone(std::vector<float>& levels_db, long long bins, float level_db) {
    for (long long i = 0; i < bins; ++i) {
        levels_db.push_back(level_db + static_cast<float>(i % 3) * 0.4F);
    }
}

BinLevels bins_of(const std::vector<float>& levels_db, float peak = 0.01F) {
    return {levels_db, std::vector<float>(levels_db.size(), -90), levels_db, levels_db,
            std::vector<float>(levels_db.size(), peak)};
}

TEST(Levels, AreThoseOfTheLibraryRoundedToATenThousandth) {
    for (const double power : {1.0, 0.5, 2.0, 1e-4, 3.7e-9, 0.70710678, 123.456}) {
        EXPECT_NEAR(10 * std::log10(power), quorvane::level_of_power(power), 0.51e-4) << power;
        EXPECT_NEAR(power, quorvane::power_of_level(10 * std::log10(power)), power * 1e-9);
    }
    EXPECT_EQ(-10.0, quorvane::level_of_power(0.1));
    EXPECT_EQ(kSilence_db, quorvane::level_of_power(0));
}

TEST(Pauses, AreLongSteadyAndUnderTheSpeechBesideThem) {
    struct Row {
        const char* name;
        float speech_db;
        float tone_db;
        long long bins;
        std::size_t pauses;
    };

    const Row rows[] = {
        {"four seconds of room tone", -25, -50, 80, 1},
        {"two seconds", -25, -50, 40, 0},
        {"a whisper keeps its pauses", -60, -75, 80, 1},
        {"steady music as loud as the voice", -25, -28, 80, 0},
        {"digital silence", -25, -200, 80, 1},
    };
    for (const Row& row : rows) {
        std::vector<float> levels;
        add_speech(levels, 100, row.speech_db);
        add_tone(levels, row.bins, row.tone_db);
        add_speech(levels, 100, row.speech_db);
        const auto pauses = find_pauses(bins_of(levels), find_speech(levels));
        ASSERT_EQ(row.pauses, pauses.size()) << row.name;
        for (const Stretch& pause : pauses) {
            // What is near speech stays with it, half a second and a bin at most.
            EXPECT_THAT(pause.begin - 100, testing::AllOf(testing::Ge(0), testing::Le(11)));
            EXPECT_THAT(100 + row.bins - pause.end,
                        testing::AllOf(testing::Ge(0), testing::Le(11)));
        }
    }
}

TEST(Pauses, BesideAQuietVoiceAreNotTakenForOneAndTheVoiceIsKept) {
    std::vector<float> levels;
    add_speech(levels, 100, -22);
    add_speech(levels, 100, -40);
    add_tone(levels, 100, -60);
    const auto pauses = find_pauses(bins_of(levels), find_speech(levels));
    ASSERT_EQ(1U, pauses.size());
    EXPECT_GE(pauses[0].begin, 200);
    EXPECT_EQ(300, pauses[0].end);
}

TEST(Pauses, ThatMoveLikeAVoiceAreFurtherUnderTheSpeech) {
    struct Row {
        const char* name;
        float level_db;
        float step_db;  // from bin to bin
        std::size_t pauses;
    };

    // Speech of -20 dB has a mean power of -23 dB without the gaps.
    const Row rows[] = {{"room tone", -32, 0.8F, 1},
                        {"a voice in a reverberant room", -32, 2, 0},
                        {"far under", -42, 2, 1}};
    for (const Row& row : rows) {
        std::vector<float> levels;
        add_speech(levels, 100, -20);
        for (int i = 0; i < 80; ++i) {
            levels.push_back(row.level_db + static_cast<float>(i % 2) * row.step_db);
        }
        add_speech(levels, 100, -20);
        std::vector<bool> speech(280, true);
        std::fill(speech.begin() + 100, speech.begin() + 180, false);
        EXPECT_EQ(row.pauses, find_pauses(bins_of(levels), speech).size()) << row.name;
    }
}

TEST(Phrases, ChangeWithTheVoiceAndNotWithAWord) {
    struct Row {
        const char* name;
        float second_db;
        long long bins;
        std::size_t phrases;
    };

    // 60 bins of words beside 160 at another level, three of four loud: n1 n2 / (n1 + n2) = 1.6 s,
    // times the difference in dB squared, against what two phrases cost behind 0.4 s: 18 each.
    const Row rows[] = {{"another voice", -34, 60, 3},
                        {"the same voice", -25.5, 60, 1},
                        {"a loud word", -20, 5, 1}};
    for (const Row& row : rows) {
        std::vector<float> levels;
        add_speech(levels, 80, -25);
        add_tone(levels, 8, -60);
        add_speech(levels, row.bins, row.second_db);
        add_tone(levels, 8, -60);
        add_speech(levels, 80, -25);
        const Phrases found = find_phrases(levels, find_speech(levels), {});
        EXPECT_EQ(row.phrases, found.phrases.size()) << row.name;
    }
}

TEST(Phrases, BeginBehindALongGapSoonerThanWithinAVoice) {
    // 2.6 s and 2.6 s of loud syllables 3.5 dB apart: 1.5 s x 3.5^2 = 18, which pays for a phrase
    // behind 0.8 s (5), and not between two words (30).
    for (const long long gap : {2, 16}) {
        std::vector<float> levels;
        add_speech(levels, 80, -25);
        add_tone(levels, gap, -60);
        add_speech(levels, 80, -28.5);
        const Phrases found = find_phrases(levels, find_speech(levels), {});
        EXPECT_EQ(gap == 16 ? 2U : 1U, found.phrases.size()) << gap;
    }
}

TEST(Phrases, IncludeAShortTurnFarUnderItsNeighbours) {
    struct Row {
        const char* name;
        float level_db;
        long long bins;
        std::size_t phrases;
    };

    const Row rows[] = {{"a second of a quiet voice", -50, 24, 3},
                        {"what stirs in the room tone", -86, 24, 2},
                        {"clicks", -50, 3, 2}};
    for (const Row& row : rows) {
        std::vector<float> levels;
        add_speech(levels, 80, -20);
        add_tone(levels, 6, -95);
        for (int word = 0; word < 3; ++word) {
            add_speech(levels, row.bins / 3, row.level_db);
            add_tone(levels, 3, -95);
        }
        add_speech(levels, 80, -26);
        add_tone(levels, 20, -95);
        const Phrases found = find_phrases(levels, find_speech(levels), {});
        EXPECT_EQ(row.phrases, found.phrases.size()) << row.name;
    }
}

TEST(Phrases, IncludeAShortTurnThatOnlySomeWordsOfStandOut) {
    // 1.2 s, of which two bins in seven are within 12 dB of the loudest ones beside it.
    std::vector<float> levels;
    add_speech(levels, 80, -20);
    add_tone(levels, 3, -60);
    for (int i = 0; i < 24; ++i) {
        levels.push_back(i % 7 < 2 ? -30 : -42);
    }
    add_tone(levels, 3, -60);
    add_speech(levels, 80, -20);
    add_tone(levels, 30, -95);
    const Phrases found = find_phrases(levels, find_speech(levels), {});
    ASSERT_EQ(3U, found.phrases.size());
    EXPECT_NEAR(-34.5, found.phrases[1].level_db, 1.5);
}

/** A loud and a quiet phrase, a pause, and the quiet one again. */
struct Talk {
    std::vector<float> levels;
    std::vector<Stretch> pauses;
    Phrases phrases;

    Talk() {
        add_speech(levels, 100, -20);
        add_tone(levels, 12, -60);
        add_speech(levels, 100, -34);
        add_tone(levels, 200, -55);
        add_speech(levels, 100, -34);
        const auto speech = find_speech(levels);
        pauses = find_pauses(bins_of(levels), speech);
        phrases = find_phrases(levels, speech, pauses);
    }
};

TEST(GainCurve, IsConstantInAPhraseAndNeverLargerInAPause) {
    const Talk talk;
    ASSERT_EQ(1U, talk.pauses.size());
    const auto curve =
        quorvane::gain_curve(bins_of(talk.levels), talk.phrases, talk.pauses, {-18, -1});
    // The voices are 14 dB apart, and so are the gains, each from its phrase's first word on.
    EXPECT_FLOAT_EQ(curve[0], curve[99]);
    EXPECT_NEAR(14, curve[112] - curve[50], 0.2);
    EXPECT_FLOAT_EQ(curve[112], curve[200]);
    for (long long i = talk.pauses[0].begin + 5; i < talk.pauses[0].end - 5; ++i) {
        EXPECT_LT(curve[static_cast<std::size_t>(i)], curve[150]) << i;
    }
    // At most the mean gain of the phrases.
    EXPECT_LT(curve[300], (curve[50] + 2 * curve[150]) / 3 + 0.5F);
}

TEST(GainCurve, NamesTheBinsThatALimiterHasToLookAt) {
    const Talk talk;
    BinLevels bins = bins_of(talk.levels, 0.05F);
    bins.peak[150] = 0.9F;
    const auto curve = quorvane::gain_curve(bins, talk.phrases, talk.pauses, {-18, -1});
    const std::vector<bool> found = quorvane::bins_to_limit(bins.peak, -1, curve);
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(i >= 149 && i <= 151, found[i]) << i;
    }
    // The phrase's gain is as it would be without the peak.
    const auto free =
        quorvane::gain_curve(bins_of(talk.levels, 0.05F), talk.phrases, talk.pauses, {-18, -1});
    EXPECT_NEAR(free[140], curve[140], 0.3);
    EXPECT_EQ(curve[140], curve[150]);
}

TEST(GainCurve, MakesUpForWhatThePeaksOfAPhraseTakeAway) {
    const Talk talk;
    BinLevels bins = bins_of(talk.levels, 0.05F);
    for (std::size_t i = 112; i < 212; i += 4) {
        bins.peak[i] = 0.25F;  // 5 dB over the ceiling at a gain of 16 dB
    }
    const auto curve = quorvane::gain_curve(bins, talk.phrases, talk.pauses, {-18, -1});
    const auto heard = quorvane::limited_curve(bins.peak, -1, curve);
    std::vector<float> level(100);
    for (std::size_t i = 0; i < level.size(); ++i) {
        level[i] = talk.levels[112 + i] + heard[112 + i];
    }
    // One bin in four is held, the loudest: 1.7 dB of the phrase's level without the make-up.
    EXPECT_GT(quorvane::speech_level(level, std::vector<bool>(100, true), {0, 100}), -19);
    const auto free =
        quorvane::gain_curve(bins_of(talk.levels, 0.05F), talk.phrases, talk.pauses, {-18, -1});
    EXPECT_GT(curve[140], free[140] + 0.5F);
}

TEST(GainCurve, TrimsWhatIsAboveTheCeilingAndNothingElse) {
    const std::vector<float> low(40, 0.89F);
    EXPECT_TRUE(quorvane::trim_curve(low, -1).empty());
    std::vector<float> peaks = low;
    peaks[20] = 1.0F;
    const auto trim = quorvane::trim_curve(peaks, -1);
    ASSERT_EQ(peaks.size(), trim.size());
    EXPECT_EQ(0, trim[15]);
    EXPECT_EQ(0, trim[25]);
    for (std::size_t i = 19; i <= 21; ++i) {
        EXPECT_NEAR(-1, static_cast<double>(trim[i]), 0.02) << i;
    }
}

TEST(Timeline, FindsTheFramesOfTheCopyInTheRecording) {
    const quorvane::Timeline timeline(1000, {{0, 100}, {300, 500}, {900, 1000}});
    EXPECT_EQ(600, timeline.kept_frames());
    EXPECT_EQ(100, timeline.in_recording(0));
    EXPECT_EQ(299, timeline.in_recording(199));
    EXPECT_EQ(500, timeline.in_recording(200));
    EXPECT_EQ(1000, timeline.in_recording(600));
}

}  // namespace
