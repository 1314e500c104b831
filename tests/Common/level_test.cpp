#include "Common/level.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <locale>
#include <sstream>
#include <thread>
#include <type_traits>

#include "Common/gate/gate.h"
#include "Common/highpass/highpass.h"
#include "Common/reporting/run_state.h"
#include "leveling/engine/hooks.h"
#include "tests/support/engine_switches.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Level : public testing::Test {
  protected:
    Level() { hooks::use_temporary_directory(temporary.path() + "/"); }

    int run(const Signal& input,
            int format = kWav16,
            const std::vector<std::string>& options = {}) {
        write_sound(in, input, format);
        return run_file(options);
    }

    int run_file(const std::vector<std::string>& options = {}) {
        std::vector<std::string> words{"", "--input-file", in, "--output-file", out};
        words.insert(words.end(), options.begin(), options.end());
        fractions.clear();
        const CapturedOutput captured;
        const int result = call(
            [this](int argc, const char** argv) {
                return levelMain(argc, const_cast<char**>(argv), "", callback, this);
            },
            words);
        messages = captured.out();
        errors = captured.err();
        return result;
    }

    static int callback(void* context, float fraction) {
        Level* self = static_cast<Level*>(context);
        self->fractions.push_back(fraction);
        if (fraction >= self->cancel_at) {
            levelRequestCancel();
        }
        return 0;
    }

    static int has_progress(void* context) {
        return static_cast<Level*>(context)->fractions.empty() ? 0 : 1;
    }

    const EngineSwitches switches;
    TempDir temporary;
    TempDir dir;
    std::string in = dir / "in.wav";
    std::string out = dir / "out.wav";
    std::vector<float> fractions;
    float cancel_at = 2.0F;
    std::string messages;
    std::string errors;
};

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

TEST_F(Level, TooShortAndConstantInputsAreCopiedUnchanged) {
    struct Row {
        const char* name;
        Signal signal;
    };

    const Row rows[] = {
        {"45 ms", signals::sine(0.5, 440.0, 2000.0 / 44100)},
        {"no frames", signals::silence(0)},
        {"silence", signals::silence(90000)},
        {"an offset", signals::from([](long long) { return 0.25; }, 90000)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        write_text(out, "old");
        EXPECT_EQ(0, run(row.signal));
        EXPECT_EQ(read_text(in), read_text(out));
        EXPECT_THAT(fractions, ElementsAre(1.0F));
        const std::string before = read_text(in);
        out = in;
        EXPECT_EQ(0, run_file());
        EXPECT_EQ(before, read_text(in)) << "copied onto itself";
        out = dir / "out.wav";
    }
    EXPECT_THAT(temporary.entries(), IsEmpty());
    EXPECT_EQ(0, run(signals::speech(0.05, 8000))) << "exactly 0.05 s is long enough";
    EXPECT_GT(fractions.size(), 1u);
}

TEST_F(Level, WithoutAnythingLoudTheInputIsCopied) {
    // At -60 dB no bin is above the floor of the loud-peak step.
    ASSERT_EQ(0, run(signals::sine(0.001, 440.0, 2.0, 8000)));
    EXPECT_EQ("Step 3 did not complete successfully, will copy input to output and bail\n",
              messages);
    EXPECT_EQ(temporary / "_02.wav is silent\n", errors);
    EXPECT_EQ(read_text(in), read_text(out));
    EXPECT_EQ(1.0F, fractions.back());
}

TEST_F(Level, AWrongInputFailsBeforeAnyTemporaryFile) {
    in = dir / "none.wav";
    EXPECT_EQ(1, run_file());
    EXPECT_EQ("Could not find " + in + "\n", messages);
    std::filesystem::create_symlink(in, in);
    EXPECT_EQ(1, run_file());
    EXPECT_EQ("Could not find " + in + "\n", messages) << "a link to itself";
    std::filesystem::remove(in);

    in = dir / "talk";
    EXPECT_EQ(1, run(signals::speech(1.0)));
    EXPECT_EQ("Could not find extension for input sound file\n", messages);

    in = dir / "text.wav";
    write_text(in, "not audio");
    EXPECT_EQ(1, run_file());
    EXPECT_THAT(errors, testing::StartsWith("Error opening sound file: " + in + "\nReason: "));

    in = dir / "in.wav";
    EXPECT_EQ(1, run(signals::speech(1.0), kWav16, {"--bit-depth", "8"}));
    EXPECT_EQ(in + ": cannot write the format WAV (Microsoft)/Signed 8 bit PCM", errors);

    EXPECT_THAT(temporary.entries(), IsEmpty());
    EXPECT_FALSE(file_exists(out));
}

TEST_F(Level, AFailingStepIsNamed) {
    EXPECT_EQ(1, run(signals::speech(1.0, 8000, 3)));
    EXPECT_EQ("Step 1 did not complete successfully\n", messages);

    EXPECT_EQ(1, run(signals::speech(1.0), kWav16, {"--reduce-loud-release", "soon"}));
    EXPECT_THAT(messages, testing::EndsWith("Step 4 did not complete successfully\n"));
    EXPECT_EQ(1, run(signals::speech(1.0), kWav16, {"--segment-cost-function", "LAD"}));
    EXPECT_EQ("error: unknown cost function \"LAD\"\nStep 6 did not complete successfully\n",
              messages);
    EXPECT_EQ(1, run(signals::speech(1.0), kWav16, {"--calc-rms-floor-noise_threshold", "2"}));
    EXPECT_THAT(messages, HasSubstr("error: no gains in "));
    EXPECT_THAT(messages, testing::EndsWith("Step 8 did not complete successfully\n"));
    EXPECT_FALSE(file_exists(out));
}

TEST_F(Level, NaNInAFloatFileFailsWithItsPlace) {
    Signal input = signals::speech(3.0);
    input.samples[70000] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(1, run(input, kWavFloat));
    EXPECT_EQ(in + ": the sample in frame 70000 is not a number", errors);
    EXPECT_FALSE(file_exists(out));
}

TEST_F(Level, TheOutcomeTellsWhatHappenedAndTheFirstCause) {
    struct Row {
        const char* name;
        Signal signal;
        std::vector<std::string> options;
        LevelOutcomeKind kind;
        int step;
        const char* reason;
    };

    const Signal talk = signals::speech(2.0, 8000);
    const Row rows[] = {
        {"leveled", talk, {}, kLevelLeveled, 0, ""},
        {"short",
         signals::sine(0.5, 440.0, 0.04),
         {},
         kLevelCopiedTooShort,
         0,
         "shorter than 0.05 s"},
        {"zero", signals::silence(9000), {}, kLevelCopiedConstant, 0, "silent"},
        {"offset",
         signals::from([](long long) { return 0.25; }, 9000),
         {},
         kLevelCopiedConstant,
         0,
         "every sample is the same"},
        {"quiet",
         signals::sine(0.001, 440.0, 2.0, 8000),
         {},
         kLevelCopiedQuiet,
         0,
         "nothing in it is louder than the noise floor of -44.0 dB"},
        {"channels",
         signals::speech(1.0, 8000, 3),
         {},
         kLevelFailed,
         1,
         "it has 3 channels, at most 2 can be leveled"},
        {"step's option",
         talk,
         {"--reduce-loud-release", "soon"},
         kLevelFailed,
         4,
         "error: the argument ('soon') for option '--release' is invalid"},
        {"cost",
         talk,
         {"--segment-cost-function", "LAD"},
         kLevelFailed,
         6,
         "error: unknown cost function \"LAD\""},
        {"threshold",
         talk,
         {"--calc-rms-floor-noise_threshold", "2"},
         kLevelFailed,
         8,
         "error: no gains in the temporary file of step 7"},
        {"usage",
         talk,
         {"--loudness", "3"},
         kLevelWrongUsage,
         0,
         "error: unrecognised option '--loudness'"},
        {"version", talk, {"--version"}, kLevelNotRun, 0, ""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        run(row.signal, kWav16, row.options);
        const LevelOutcome& outcome = *levelOutcome();
        EXPECT_EQ(row.kind, outcome.kind);
        EXPECT_EQ(row.step, outcome.failed_step);
        EXPECT_STREQ(row.reason, outcome.reason);
        EXPECT_EQ(0, outcome.system_failure);
        if (row.kind == kLevelFailed) {
            EXPECT_EQ(in + ": " + row.reason, outcome.cause);
        }
    }
    in = dir / "none.wav";
    run_file();
    EXPECT_EQ("Could not find " + in, levelOutcome()->cause) << "names the input already";
    EXPECT_STREQ("Could not find the recording", levelOutcome()->reason);
}

TEST_F(Level, WhateverFailsInStep3MakesItCopyTheInputAndReportTheCause) {
    std::filesystem::create_directory(temporary / "_03.wav");  // cannot be opened for writing
    EXPECT_EQ(0, run(signals::speech(2.0, 8000)));
    EXPECT_EQ("Step 3 did not complete successfully, will copy input to output and bail\n",
              messages);
    EXPECT_EQ(read_text(in), read_text(out));
    EXPECT_EQ(kLevelCopiedStepFailed, levelOutcome()->kind);
    EXPECT_EQ(3, levelOutcome()->failed_step);
    EXPECT_EQ(1, levelOutcome()->system_failure);
    EXPECT_THAT(levelOutcome()->reason, HasSubstr("the temporary file of step 3"));
    EXPECT_THAT(levelOutcome()->cause, testing::Not(HasSubstr(temporary.path())));
}

TEST_F(Level, ADamagedInputIsLeveledAsFarAsItCanBeReadAndReported) {
    in = dir / "in.flac";
    out = dir / "out.flac";
    write_sound(in, signals::speech(12.0, 16000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    const std::string whole = read_text(in);
    write_text(in, whole.substr(0, whole.size() / 2));
    ASSERT_EQ(0, run_file());
    const LevelOutcome& outcome = *levelOutcome();
    EXPECT_EQ(kLevelLeveled, outcome.kind);
    EXPECT_EQ(kLevelFramesMissing, outcome.defect);
    EXPECT_EQ(192000, outcome.frames_promised);
    EXPECT_EQ(sound_info(out).frames, outcome.frames_read);
    EXPECT_GT(outcome.frames_read, 60000);
    EXPECT_LT(outcome.frames_read, 130000);
    EXPECT_STRNE("", outcome.library_text);
    EXPECT_THAT(outcome.defect_reason, HasSubstr(outcome.library_text));
    EXPECT_THAT(outcome.defect_reason, testing::StartsWith("cannot be read from frame "));
    EXPECT_EQ(0, outcome.defect_by_system);

    write_text(in, whole);
    ASSERT_EQ(0, run_file());
    EXPECT_EQ(kLevelNoDefect, levelOutcome()->defect) << "of the run before";
    EXPECT_EQ(192000, sound_info(out).frames);
}

TEST_F(Level, ACopyOfSamplesThatAreNoNumbersIsReported) {
    struct Row {
        const char* name;
        Signal signal;
        LevelOutcomeKind kind;
        const char* reason;
    };

    Signal shortest = signals::silence(1000);
    shortest.samples[999] = std::nan("");
    const double infinity = std::numeric_limits<double>::infinity();
    const Row rows[] = {
        {"short", shortest, kLevelCopiedTooShort, "the sample in frame 999 is not a number"},
        {"constant", signals::from([&](long long) { return infinity; }, 9000), kLevelCopiedConstant,
         "the sample in frame 0 is infinite"}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(0, run(row.signal, kWavFloat));
        EXPECT_EQ("", messages + errors);
        EXPECT_EQ(read_text(in), read_text(out));
        EXPECT_EQ(row.kind, levelOutcome()->kind);
        EXPECT_EQ(kLevelNotFinite, levelOutcome()->defect);
        EXPECT_STREQ(row.reason, levelOutcome()->defect_reason);
    }
}

TEST_F(Level, ACallerMayMakeTheCopyItself) {
    struct Copied {
        std::string words;
        int result;
    } copied{"", 0};

    levelSetCopy(
        [](void* context, const char* from, const char* to) {
            auto& made = *static_cast<Copied*>(context);
            made.words = std::string(from) + " " + to + " " + levelOutcome()->reason;
            return made.result;
        },
        &copied);
    EXPECT_EQ(0, run(signals::silence(9000)));
    EXPECT_EQ(in + " " + out + " silent", copied.words);
    EXPECT_FALSE(file_exists(out));
    copied.result = 1;
    EXPECT_EQ(1, run_file());
    EXPECT_EQ(kLevelFailed, levelOutcome()->kind);
    levelSetCopy(nullptr, nullptr);
    EXPECT_EQ(0, run_file());
    EXPECT_TRUE(file_exists(out));
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

TEST_F(Level, NothingThatStandsAtAnIntermediatesPlaceIsWrittenOver) {
    const auto refused = [&] {
        const std::string before = read_text(in);
        EXPECT_EQ(1, run_file());
        EXPECT_THAT(errors, HasSubstr("would write its temporary file over"));
        EXPECT_EQ(before, read_text(in));
    };
    in = temporary / "_02.wav";
    EXPECT_EQ(1, run(signals::speech(1.0, 8000)));
    refused();
    const std::string linked = dir / "in.wav";
    std::filesystem::create_hard_link(in, linked);
    in = linked;
    refused();
    std::filesystem::remove(temporary / "_02.wav");
    std::filesystem::create_symlink(in, temporary / "_07.txt");
    refused();
    std::filesystem::remove(temporary / "_07.txt");
    out = dir.path() + "/../" + std::filesystem::path(temporary.path()).filename().string() +
          "/_10.wav";
    refused();

    // A link that is not the input is replaced, not written through.
    out = dir / "out.wav";
    write_text(dir / "precious", "old");
    std::filesystem::create_symlink(dir / "precious", temporary / "_04.wav");
    std::filesystem::create_hard_link(dir / "precious", temporary / "_final.wav");
    EXPECT_EQ(0, run_file());
    EXPECT_EQ("old", read_text(dir / "precious"));
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

TEST_F(Level, HiddenIntermediatesChangeNothingThatCanBeSeen) {
    struct Row {
        int format;
        int channels;
        long long frames;  // 800 to a bin: the last one is short, or there are odd bytes to pad
    };

    const Row rows[] = {{kWav16, 2, 48007},
                        {kWav16, 1, 8 * 65536 + 1},
                        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 1, 40001},
                        {SF_FORMAT_WAV | SF_FORMAT_PCM_24, 1, 40003},
                        {SF_FORMAT_WAV | SF_FORMAT_ULAW, 2, 40001},
                        {SF_FORMAT_WAVEX | SF_FORMAT_FLOAT, 2, 40800},
                        {SF_FORMAT_RF64 | SF_FORMAT_FLOAT, 1, 40799},
                        {SF_FORMAT_W64 | SF_FORMAT_PCM_32, 2, 40799},
                        {SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, 1, 40001},
                        {SF_FORMAT_AIFF | SF_FORMAT_PCM_16, 2, 120801},
                        {SF_FORMAT_AU | SF_FORMAT_DOUBLE, 2, 40001},
                        {SF_FORMAT_CAF | SF_FORMAT_PCM_24, 2, 40001},
                        {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 2, 40001}};
    for (const Row& row : rows) {
        SCOPED_TRACE(testing::Message() << std::hex << row.format);
        Signal input = signals::speech(40.0, 16000, row.channels);
        input.samples.resize(static_cast<std::size_t>(row.frames * row.channels));
        ASSERT_EQ(0, run(input, row.format, {"--bit-depth", row.channels == 1 ? "16" : "0"}));
        const std::string visible = read_text(out);
        const std::vector<float> shown = fractions;
        const std::string told = messages + errors;
        levelHideIntermediates(1);
        EXPECT_EQ(0, run_file({"--bit-depth", row.channels == 1 ? "16" : "0"}));
        levelHideIntermediates(0);
        EXPECT_TRUE(visible == read_text(out));
        EXPECT_EQ(shown, fractions);
        EXPECT_EQ(told, messages + errors);
        EXPECT_THAT(temporary.entries(), IsEmpty());
    }
}

struct Lent {
    std::string path;
    off_t begin;
};

int open_file(void* context) {
    const Lent& lent = *static_cast<const Lent*>(context);
    const int file = ::open(lent.path.c_str(), O_RDWR | O_CREAT | O_EXCL, 0600);
    EXPECT_EQ(lent.begin, ::lseek(file, lent.begin, SEEK_SET));
    return file;
}

TEST_F(Level, AFinalFileThatWasLentGetsTheSameBytesAndIsMeasured) {
    levelHideIntermediates(1);
    const std::pair<int, off_t> cases[] = {{kWav16, 0},
                                           {kWavFloat, 0},
                                           {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 0},
                                           {SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 0},
                                           {kWav16, 1001},
                                           {kWavFloat, 8},
                                           {SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 70000}};
    for (const auto& [format, begin] : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << format << " behind " << begin);
        ASSERT_EQ(0, run(signals::speech(12.0, 16000, 2), format));
        const std::string moved = read_text(out);
        const Signal leveled = read_sound(out);
        std::filesystem::remove(out);

        Lent lent{dir / "lent", begin};
        levelCollectFindings(1);
        levelSetFinalFile(open_file, &lent, nullptr);
        EXPECT_EQ(0, run_file());
        levelSetFinalFile(nullptr, nullptr, nullptr);
        const bool plain = (format & SF_FORMAT_TYPEMASK) != SF_FORMAT_FLAC;
        EXPECT_EQ(plain, file_exists(lent.path));
        EXPECT_EQ(plain, !file_exists(out));
        EXPECT_TRUE(moved ==
                    read_text(plain ? lent.path : out).substr(static_cast<std::size_t>(begin)));

        const LevelFindings found = *levelFindings();
        levelCollectFindings(0);
        EXPECT_EQ(plain ? leveled.frames() : -1, found.output_frames);
        if (plain) {
            EXPECT_EQ(peak_of(leveled), found.output_peak);
            const long long frames = leveled.frames();
            EXPECT_NEAR(
                std::hypot(rms_of(leveled, 0, frames, 0), rms_of(leveled, 0, frames, 1)) / M_SQRT2,
                found.output_rms, 1e-12);
        }
        std::filesystem::remove(lent.path);
    }
    EXPECT_THAT(temporary.entries(), IsEmpty());
}

int open_full_disk(void* /*context*/) {
    return ::open("/dev/full", O_RDWR);
}

TEST_F(Level, AFinalFileThatCannotTakeItHasItsCallersName) {
    levelHideIntermediates(1);
    // The input's name inside the output's is not the recording.
    const std::string beside = in + "-leveled";
    for (const char* name : std::initializer_list<const char*>{nullptr, beside.c_str()}) {
        levelSetFinalFile(open_full_disk, nullptr, name);
        EXPECT_EQ(1, run(signals::speech(12.0, 16000, 2)));
        EXPECT_EQ(10, levelOutcome()->failed_step);
        EXPECT_EQ(kLevelFinalFile, levelOutcome()->failed_file);
        EXPECT_THAT(levelOutcome()->reason, HasSubstr(name == nullptr ? "the output" : name));
        EXPECT_THAT(levelOutcome()->reason, testing::Not(HasSubstr("temporary file")));
        EXPECT_FALSE(file_exists(out));
    }
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

TEST_F(Level, TheDiskMustHaveThreeTimesTheInputFree) {
    // Two fifths of what is free, without taking it: a hole behind the audio.
    write_sound(in, signals::speech(1.0, 8000), kWav16);
    const std::uintmax_t free = std::filesystem::space("/").available;
    ASSERT_EQ(0, truncate(in.c_str(), static_cast<off_t>(free / 5 * 2)));
    EXPECT_EQ(1, run_file());
    EXPECT_EQ("Insufficient disk space for temporary files.", messages + errors);
    EXPECT_THAT(temporary.entries(), IsEmpty());
}

TEST_F(Level, WithoutATemporaryDirectoryTheRunFails) {
    hooks::use_temporary_directory("");
    EXPECT_EQ(1, run(signals::speech(1.0)));
    EXPECT_EQ("There is no directory for temporary files.", errors);
    hooks::use_temporary_directory("/no/such/folder/");
    EXPECT_EQ(1, run_file());
    EXPECT_EQ("error opening sound file \"/no/such/folder/_01.wav\"", errors);
    EXPECT_THAT(levelOutcome()->reason, HasSubstr("No such file or directory"));
}

}  // namespace
