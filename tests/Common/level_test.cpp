#include "Common/level.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <locale>
#include <sstream>
#include <thread>
#include <type_traits>

#include "Common/gate/gate.h"
#include "Common/highpass/highpass.h"
#include "Common/reporting/run_state.h"
#include "tests/Common/level_fixture.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/** Mean level in dB of the loud thirds of a signal's tenths of seconds, over frames from..to. */
double speech_level_db(const Signal& signal, double from_s, double to_s) {
    std::vector<double> levels;
    const long long bin = signal.sample_rate_hz / 10;
    for (long long at = std::llround(from_s * signal.sample_rate_hz);
         at + bin <= std::llround(to_s * signal.sample_rate_hz); at += bin) {
        levels.push_back(rms_of(signal, at, at + bin));
    }
    std::sort(levels.begin(), levels.end());
    double power = 0.0;
    for (std::size_t i = levels.size() * 2 / 3; i < levels.size(); ++i) {
        power += levels[i] * levels[i] / static_cast<double>(levels.size() - levels.size() * 2 / 3);
    }
    return 10.0 * std::log10(power);
}

TEST_F(Level, EvensOutATalkUnderThePeakCeiling) {
    const Signal input = signals::speech(12.0, 16000);
    ASSERT_EQ(0, run(input));
    const Signal output = read_sound(out);
    EXPECT_EQ(input.frames(), output.frames());
    EXPECT_EQ(kWav16, sound_info(out).format);
    EXPECT_LE(peak_of(output), std::pow(10.0, -1.0 / 20.0) + 1.0 / 32768);

    // Passages change every three seconds or so, from 0.08 to 0.5: 16 dB apart.
    EXPECT_GT(speech_level_db(input, 4.0, 5.5) - speech_level_db(input, 0.5, 2.5), 13.0);
    EXPECT_LT(std::fabs(speech_level_db(output, 0.5, 2.5) - speech_level_db(output, 4.0, 5.5)),
              4.0);

    EXPECT_THAT(temporary.entries(), IsEmpty());
    EXPECT_THAT(dir.entries(), ElementsAre("in.wav", "out.wav"));
    EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
    EXPECT_EQ(1.0F, fractions.back());
    EXPECT_EQ("", messages + errors);
}

TEST_F(Level, EveryFormatThatCanBeWrittenGoesThrough) {
    struct Row {
        const char* file;
        int format;
    };

    const Row rows[] = {
        {"u8.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8},
        {"24.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24},
        {"32.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_32},
        {"float.wav", kWavFloat},
        {"double.wav", kWavDouble},
        {"x.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16},
        {"16.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_16},
        {"float.aifc", SF_FORMAT_AIFF | SF_FORMAT_FLOAT},
        {"16.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16},
        {"24.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_24},
        {"16.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16},
        {"16.au", SF_FORMAT_AU | SF_FORMAT_PCM_16},
        {"16.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16},
        {"talk.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
    };
    const Signal input = signals::speech(4.0, 22050, 2);
    for (const Row& row : rows) {
        SCOPED_TRACE(row.file);
        in = dir / row.file;
        out = dir / (std::string("out-") + row.file);
        ASSERT_EQ(0, run(input, row.format)) << messages << errors;
        const SF_INFO before = sound_info(in);
        const SF_INFO after = sound_info(out);
        EXPECT_EQ(before.format, after.format);
        EXPECT_EQ(before.frames, after.frames);
        EXPECT_EQ(before.channels, after.channels);
        EXPECT_EQ(before.samplerate, after.samplerate);
        EXPECT_GT(peak_of(read_sound(out)), 0.3);
    }
}

TEST_F(Level, TheSameInputGivesTheSameFileToTheByte) {
    for (const int format : {kWav16, kWavFloat}) {
        ASSERT_EQ(0, run(signals::speech(3.0, 8000), format));
        const std::string first = read_text(out);
        ASSERT_EQ(0, run_file());
        EXPECT_EQ(first, read_text(out));
    }
}

/** A decimal comma and points between thousands. */
class Comma : public std::numpunct<char> {
    char do_decimal_point() const override { return ','; }

    char do_thousands_sep() const override { return '.'; }

    std::string do_grouping() const override { return "\3"; }
};

TEST_F(Level, TheCallersLanguageDoesNotChangeTheFile) {
    const std::vector<std::string> options{"--segment-tolerance", "2.5", "--reduce-loud-level-diff",
                                           "3.5"};
    ASSERT_EQ(0, run(signals::speech(12.0, 16000), kWav16, options));
    const std::string plain = read_text(out);
    const std::locale before = std::locale::global(std::locale(std::locale::classic(), new Comma));
    const int result = run_file(options);
    std::locale::global(before);
    EXPECT_EQ(0, result) << messages << errors;
    EXPECT_TRUE(plain == read_text(out));
}

TEST_F(Level, FindingsAreWhatTheStepsWrote) {
    levelCollectFindings(1);
    levelKeepIntermediates(1);
    ASSERT_EQ(0, run(signals::speech(30.0, 8000)));
    const LevelFindings* found = levelFindings();
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(8000, found->sample_rate_hz);
    EXPECT_EQ(240000, found->frames);
    EXPECT_NEAR(std::min(found->filtered_level_db - 18.0, -40.0), found->gate_threshold_db, 0.05);
    std::istringstream smoothed(read_text(temporary / "_09.txt"));
    ASSERT_GT(found->gain_count, 500u);
    for (std::size_t i = 0; i < found->gain_count; ++i) {
        double gain = 0.0;
        smoothed >> gain;
        ASSERT_EQ(gain, found->gains[i]) << i;
    }
    std::istringstream levels(read_text(temporary / "_07.txt"));
    ASSERT_GT(found->passage_count, 1u);
    long long begin = 0;
    for (std::size_t i = 0; i < found->passage_count; ++i) {
        double level_db = 0.0;
        levels >> level_db;
        EXPECT_EQ(level_db, found->passages[i].level_db);
        EXPECT_EQ(begin, found->passages[i].begin_frame);
        begin = found->passages[i].end_frame;
    }
    EXPECT_EQ(found->frames, begin);
    levelCollectFindings(0);
    EXPECT_EQ(nullptr, levelFindings());
}

TEST_F(Level, AnotherThreadMayCancelAndTheRestMayBeDiscarded) {
    std::atomic<bool> begun{false};
    fractions.clear();
    write_sound(in, signals::speech(60.0, 8000), kWav16);
    std::thread canceller([&] {
        while (!begun) {
            std::this_thread::yield();
        }
        levelRequestCancel();
    });
    std::vector<std::string> words{"", "--input-file", in, "--output-file", out};
    const int result = call(
        [&](int argc, const char** argv) {
            return levelMain(
                argc, const_cast<char**>(argv), "",
                [](void* context, float) {
                    *static_cast<std::atomic<bool>*>(context) = true;
                    return 0;
                },
                &begun);
        },
        words);
    canceller.join();
    EXPECT_EQ(3, result);
    EXPECT_EQ(kLevelCancelled, levelOutcome()->kind);
    EXPECT_THAT(temporary.entries(), testing::Not(IsEmpty()));
    levelDiscardIntermediates();
    EXPECT_THAT(temporary.entries(), IsEmpty());
}

TEST_F(Level, CancellingEndsTheRunAndEveryLaterOneUntilCleared) {
    for (const float at : {0.05F, 0.36F, 0.83F, 0.97F}) {
        cancel_at = at;
        EXPECT_EQ(3, run(signals::speech(3.0))) << at;
        EXPECT_LT(fractions.back(), 1.0F);
        EXPECT_FALSE(file_exists(out));
        cancel_at = 2.0F;
        EXPECT_EQ(3, run_file()) << "still cancelled";
        levelClearCancel();
    }
    EXPECT_EQ(0, run_file());
    EXPECT_TRUE(file_exists(out));
}

TEST_F(Level, ARunThatItsOwnCallerCancelsLeavesTheOthersAlone) {
    write_sound(in, signals::speech(3.0), kWav16);
    levelAskToCancel(has_progress, this);
    EXPECT_EQ(3, run_file());
    EXPECT_EQ(kLevelCancelled, levelOutcome()->kind);
    EXPECT_EQ(0, gCancelled);
    levelAskToCancel(nullptr, nullptr);
    EXPECT_EQ(0, run_file());

    levelRequestCancel();
    EXPECT_EQ(3, run_file());
    EXPECT_EQ(1, gCancelled) << "a caught cancellation of all runs";
    levelClearCancel();
    EXPECT_EQ(0, gCancelled);
    static_assert(std::is_same_v<decltype(gCancelled), int>);
}

TEST_F(Level, TheGateThresholdStands18dBBelowTheLevelAndAt40dBAtTheMost) {
    levelKeepIntermediates(1);
    levelCollectFindings(1);
    for (const double scale : {1.0, 0.05}) {
        Signal input = signals::speech(4.0, 8000);
        for (double& sample : input.samples) {
            sample *= scale;
        }
        ASSERT_EQ(0, run(input));
        const double level_db = call(highpass::_tmain, {"highpass", in, dir / "1.wav"});
        EXPECT_EQ(scale < 1.0, level_db < -22.0) << "one file for each side of the limit";
        EXPECT_NEAR(scale < 1.0 ? level_db - 18.0 : -40.0, levelFindings()->gate_threshold_db,
                    0.05);
        char threshold[32];
        std::snprintf(threshold, sizeof threshold, "%.1f", std::min(level_db - 18.0, -40.0));
        ASSERT_EQ(0, call(gate::_tmain,
                          {"gate", temporary / "_01.wav", dir / "2.wav", "--gate__threshold_attack",
                           threshold, "--gate__threshold_release", threshold, "-a", "250", "-r",
                           "750", "-d", "250", "-k", "250"}));
        EXPECT_EQ(read_text(dir / "2.wav"), read_text(temporary / "_02.wav"));
    }
}

}  // namespace
