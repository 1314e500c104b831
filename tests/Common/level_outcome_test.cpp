#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>

#include "tests/Common/level_fixture.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class LevelOutcomes : public Level {};

TEST_F(LevelOutcomes, TooShortAndConstantInputsAreCopiedUnchanged) {
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

TEST_F(LevelOutcomes, WithoutAnythingLoudTheInputIsCopied) {
    // At -60 dB no bin is above the floor of the loud-peak step.
    ASSERT_EQ(0, run(signals::sine(0.001, 440.0, 2.0, 8000)));
    EXPECT_EQ("Step 3 did not complete successfully, will copy input to output and bail\n",
              messages);
    EXPECT_EQ(temporary / "_02.wav is silent\n", errors);
    EXPECT_EQ(read_text(in), read_text(out));
    EXPECT_EQ(1.0F, fractions.back());
}

TEST_F(LevelOutcomes, AWrongInputFailsBeforeAnyTemporaryFile) {
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

TEST_F(LevelOutcomes, AFailingStepIsNamed) {
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

TEST_F(LevelOutcomes, NaNInAFloatFileFailsWithItsPlace) {
    Signal input = signals::speech(3.0);
    input.samples[70000] = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(1, run(input, kWavFloat));
    EXPECT_EQ(in + ": the sample in frame 70000 is not a number", errors);
    EXPECT_FALSE(file_exists(out));
}

TEST_F(LevelOutcomes, TheOutcomeTellsWhatHappenedAndTheFirstCause) {
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

TEST_F(LevelOutcomes, WhateverFailsInStep3MakesItCopyTheInputAndReportTheCause) {
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

TEST_F(LevelOutcomes, ADamagedInputIsLeveledAsFarAsItCanBeReadAndReported) {
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

TEST_F(LevelOutcomes, ACopyOfSamplesThatAreNoNumbersIsReported) {
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

TEST_F(LevelOutcomes, ACallerMayMakeTheCopyItself) {
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

}  // namespace
