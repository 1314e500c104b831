#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class Program : public testing::Test {
  protected:
    Program() { write_sound(in, signals::speech(10.0, 16000, 2), kWav16); }

    /** The command that levels from with a temporary directory of this test's. */
    std::string command(const std::string& from,
                        const std::string& to,
                        const std::string& options = "",
                        const char* program = QUORVANE) const {
        return "TMPDIR=" + temporary.path() + " " + program + " --input-file '" + from +
               "' --output-file '" + to + "' " + options;
    }

    TempDir temporary;
    TempDir dir;
    const std::string in = dir / "in.wav";
    const std::string out = dir / "out.wav";
};

TEST_F(Program, LevelsAndSaysSoInOneLine) {
    const ProgramResult run = run_program(command(in, out));
    EXPECT_EQ(0, run.status);
    EXPECT_EQ(in + ": leveled, " + out + "\n", run.out);
    EXPECT_EQ("", run.err);
    EXPECT_EQ(160000, sound_info(out).frames);
    EXPECT_THAT(temporary.entries(), IsEmpty());

    write_sound(in, signals::silence(9000), kWav16);
    EXPECT_EQ(in + ": copied unchanged, " + out + ": silent\n", run_program(command(in, out)).out);

    // A single bin has no level to be fitted, and comes out louder than a talk would: no runaway.
    write_sound(in, signals::speech(0.05, 8000, 1), kWav16);
    EXPECT_EQ(in + ": leveled, " + out + "\n", run_program(command(in, out)).out);
}

TEST_F(Program, OptimisationDoesNotChangeABit) {
    for (const int format : {kWav16, kWavDouble}) {
        write_sound(in, signals::speech(10.0, 44100, 2), format);
        const TempDir kept;
        ASSERT_EQ(0, run_program(command(in, out, "--keep-intermediates " + kept / "a")).status);
        ASSERT_EQ(0, run_program(command(in, dir / "out2.wav", "--keep-intermediates " + kept / "b",
                                         QUORVANE_UNOPTIMISED))
                         .status);
        EXPECT_EQ(read_text(out), read_text(dir / "out2.wav"));
        EXPECT_EQ(0, run_program("diff -r " + kept / "a" + " " + kept / "b").status);
    }
}

TEST_F(Program, RunsAtTheSameTimeDoNotMeet) {
    const ProgramResult run =
        run_program(command(in, dir / "1.wav") + " & " + command(in, dir / "2.wav") + " & wait");
    EXPECT_EQ(read_text(dir / "1.wav"), read_text(dir / "2.wav")) << run.err;
    EXPECT_EQ(160000, sound_info(dir / "1.wav").frames);
}

TEST_F(Program, ASignalEndsTheRunAndLeavesNothing) {
    write_sound(in, signals::speech(480.0, 44100, 2), kWav16);
    for (const char* signal : {"INT", "TERM"}) {
        // Wait until the first step has its file without a name, so that the signal meets a run in
        // progress. It yields to the shell that looks, so that a busy machine makes the run longer.
        const ProgramResult run = run_program(
            command(in, out, "", "nice -n 10 " QUORVANE) +
            " & pid=$!; until ls -l /proc/$pid/fd 2>/dev/null | grep -q _scratch_ || ls " +
            temporary.path() +
            "/*/_0* >/dev/null 2>&1 || ! kill -0 $pid; do sleep 0.02; done; kill -" + signal +
            " $pid; wait $pid");
        EXPECT_EQ(3, run.status) << run.err;
        EXPECT_EQ(in + ": cancelled\n", run.err);
        EXPECT_THAT(temporary.entries(), IsEmpty());
        EXPECT_THAT(dir.entries(), ElementsAre("in.wav"));
    }
}

TEST_F(Program, ADiskThatFillsUpEndsEveryStepWithItsReason) {
    // A limit on the size of a file is a full disk that needs no disk. Only the step under test may
    // meet it, so each works on files that are there.
    const TempDir kept;
    ASSERT_EQ(0, run_program(command(in, out, "--keep-intermediates " + kept.path())).status);
    const std::string limited = "trap '' XFSZ; ulimit -f 200; ";

    struct Row {
        const char* words;
        const char* input;
    };

    const Row rows[] = {{"highpass", "_01.wav"},         {"gate", "_02.wav"},
                        {"reduce_loud_peak", "_02.wav"}, {"reduce_loud", "_03.wav"},
                        {"normalize", "_10.wav"},        {"apply_gains 50 ", "_04.wav"}};
    for (const Row& row : rows) {
        const bool gains = std::string(row.words).find(' ') != std::string::npos;
        const ProgramResult run = run_program(limited + QUORVANE_STEP + " " + row.words +
                                              (gains ? kept / "_09.txt" : "") + " " +
                                              kept / row.input + " " + dir / "step.wav");
        EXPECT_EQ(1, run.status) << row.words;
        EXPECT_THAT(run.out + run.err, HasSubstr(dir / "step.wav")) << row.words;
        EXPECT_THAT(run.out + run.err, HasSubstr("File too large")) << row.words;
    }
    const ProgramResult run = run_program(limited + command(in, dir / "none.wav"));
    EXPECT_EQ(1, run.status);
    EXPECT_EQ(in + ": not leveled: the temporary file of step 1: System error : File too large. " +
                  "(temporary files are in " + temporary.path() + ")\n",
              run.err);
    EXPECT_FALSE(file_exists(dir / "none.wav"));
    EXPECT_THAT(temporary.entries(), IsEmpty());
}

TEST_F(Program, AnOutputThatCannotBeIsRefusedBeforeTheWork) {
    const std::string original = read_text(in);

    struct Row {
        std::string output;
        const char* reason;
    };

    const Row rows[] = {{dir / "none/out.wav", "does not exist"}, {dir.path(), "is a folder"}};
    for (const Row& row : rows) {
        const ProgramResult run = run_program(command(in, row.output));
        EXPECT_EQ(1, run.status);
        EXPECT_THAT(run.err, HasSubstr(row.output + ": "));
        EXPECT_THAT(run.err, HasSubstr(row.reason));
    }
    write_text(dir / "options", "bin-size=50\noutput-file=" + dir / "options\n");
    write_text(dir / "over", "output-file=" + in + "\n");
    const std::string options = read_text(dir / "options");
    const std::string base = "TMPDIR=" + temporary.path() + " " QUORVANE " --input-file " + in;
    for (const std::string& words :
         {" --output-file " + dir / "options" + " --options-file " + dir / "options",
          " --output-file " + dir / "options" + " -o" + dir / "options",
          " --options=" + dir / "options", " --options-file=" + dir / "over",
          " --options-file /dev/stdin <" + dir / "over",
          " --options-file <(cat " + dir / "over" + ")"}) {
        const ProgramResult run = run_program("bash -c '" + base + words + "'");
        EXPECT_EQ(1, run.status) << words;
        EXPECT_THAT(run.err, testing::AnyOf(HasSubstr("is the same file as the options file"),
                                            HasSubstr("the output would replace the input")))
            << words;
    }
    EXPECT_EQ(options, read_text(dir / "options"));
    ASSERT_EQ(
        0,
        run_program("rm " + dir / "o*" + " " + dir / "over" + "; mkfifo " + dir / "pipe").status);
    EXPECT_THAT(run_program(command(dir / "pipe", out)).err, HasSubstr("is a pipe or a device"));
    EXPECT_THAT(run_program(command(in, dir / "pipe")).err, HasSubstr("is a pipe or a device"));
    ASSERT_EQ(0, run_program("rm " + dir / "pipe").status);
    const ProgramResult onto_itself = run_program(command(in, dir.path() + "/./in.wav"));
    EXPECT_EQ(1, onto_itself.status);
    EXPECT_THAT(onto_itself.err, HasSubstr("the output would replace the input"));
    EXPECT_EQ(original, read_text(in));
    EXPECT_THAT(dir.entries(), ElementsAre("in.wav"));
}

TEST_F(Program, ACutOffInputIsLeveledAsFarAsItGoesOrRefused) {
    const std::string whole = read_text(in);
    write_text(in, whole.substr(0, whole.size() / 2));
    EXPECT_EQ(0, run_program(command(in, out)).status);
    EXPECT_EQ(sound_info(in).frames, sound_info(out).frames);
    for (const std::size_t bytes : {0u, 20u, 40u}) {
        write_text(in, whole.substr(0, bytes));
        const ProgramResult run = run_program(command(in, dir / "none.wav"));
        EXPECT_EQ(1, run.status) << bytes;
        EXPECT_THAT(run.err, HasSubstr(in)) << bytes;
        EXPECT_FALSE(file_exists(dir / "none.wav")) << bytes;
    }
}

TEST_F(Program, ARecordingThatCannotBeReadWholeIsRefusedAndTheOldOutputStays) {
    const std::string damaged = dir / "in.flac";
    const std::string output = dir / "out.flac";
    write_sound(damaged, signals::speech(12.0, 16000), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    write_text(damaged, read_text(damaged).substr(0, 60000));
    const std::string loud = dir / "short.wav";
    Signal infinite = signals::silence(1000);
    infinite.samples[999] = std::numeric_limits<double>::infinity();
    write_sound(loud, infinite, kWavFloat);

    struct Row {
        std::string input;
        std::string reason;
    };

    for (const Row& row : {Row{damaged, "not leveled: cannot be read from frame "},
                           Row{loud, "not leveled: the sample in frame 999 is infinite"}}) {
        write_text(output, "old");
        const ProgramResult run = run_program(command(row.input, output));
        EXPECT_EQ(1, run.status) << row.input;
        EXPECT_THAT(run.err, HasSubstr(row.input + ": " + row.reason));
        EXPECT_EQ("", run.out);
        EXPECT_EQ("old", read_text(output));
    }
    const ProgramResult step =
        run_program(std::string(QUORVANE_STEP) + " highpass " + damaged + " " + dir / "1.flac");
    EXPECT_EQ(1, step.status);
    EXPECT_THAT(step.err, HasSubstr(damaged + ": cannot be read from frame "));
    EXPECT_GT(sound_info(dir / "1.flac").frames, 10000) << "the step went on";
}

TEST_F(Program, EveryStepShowsItsOptions) {
    const ProgramResult list = run_program(std::string(QUORVANE_STEP));
    EXPECT_EQ(2, list.status);
    for (const char* step :
         {"highpass", "gate", "reduce_loud_peak", "reduce_loud", "calc_rms", "segment",
          "wrap_segment", "calculate_gains", "smooth_gains", "apply_gains", "normalize"}) {
        const ProgramResult help = run_program(std::string(QUORVANE_STEP) + " " + step + " --help");
        EXPECT_EQ(0, help.status) << step;
        EXPECT_THAT(help.out, HasSubstr(step));
        EXPECT_EQ("", help.err) << step;
        EXPECT_THAT(list.err, HasSubstr(step));
    }
}

TEST_F(Program, AShortenedOutputIsAFailureAndNothingIsWritten) {
    const ProgramResult run = run_program(command(in, out, "--bin-size 100"));
    EXPECT_EQ(1, run.status);
    EXPECT_THAT(run.err, HasSubstr(in + ": not leveled: the engine left it "));
    EXPECT_THAT(run.err, HasSubstr("shorter than the input"));
    EXPECT_THAT(dir.entries(), ElementsAre("in.wav"));
}

TEST_F(Program, LeavesNothingBehindWhoeverLetsItDown) {
    // A closed standard output; one whose reader has gone; a run that was killed, once another
    // runs.
    EXPECT_EQ(0, run_program(command(in, out) + " >&-").status);
    EXPECT_EQ(160000, sound_info(out).frames);
    EXPECT_EQ(0, run_program("(" + command(in, out) + "; echo $? >&2) | true").status);
    EXPECT_THAT(temporary.entries(), IsEmpty());
    run_program(command(in, out) + " & pid=$!; until ls " + temporary.path() +
                "/*/_0* >/dev/null 2>&1 || ! kill -0 $pid; do :; done; kill -KILL $pid; wait $pid");
    run_program("chmod 600 " + in + "; trap '' HUP; " + command(in, out) +
                " & pid=$!; kill -HUP $pid; wait $pid");
    EXPECT_THAT(temporary.entries(), IsEmpty());
    EXPECT_THAT(dir.entries(), ElementsAre("in.wav", "out.wav"));
    EXPECT_EQ("600\n", run_program("stat -c %a " + out).out);
}

TEST_F(Program, ATemporaryDirectoryThatIsNoneIsNamed) {
    const ProgramResult run = run_program("TMPDIR=/no/such " + std::string(QUORVANE) +
                                          " --input-file " + in + " --output-file " + out);
    EXPECT_EQ(1, run.status);
    EXPECT_THAT(run.err, HasSubstr("TMPDIR is set to \"/no/such\""));
}

TEST_F(Program, KeepsIntermediatesWhereItIsTold) {
    EXPECT_EQ(0, run_program(command(in, out, "--keep-intermediates=" + dir / "new/kept")).status);
    EXPECT_TRUE(file_exists(dir / "new/kept/_04.wav"));
    EXPECT_FALSE(file_exists(dir / "new/kept/_final.wav"));
    EXPECT_THAT(temporary.entries(), IsEmpty());
    EXPECT_EQ(1, run_program(command(in, out, "--keep-intermediates")).status);
    const std::string here = "cd " + dir / "new" + " && " + command(in, out);
    EXPECT_EQ(0, run_program(here + "--keep-intermediates .").status);
    EXPECT_TRUE(file_exists(dir / "new/_04.wav"));
}

TEST_F(Program, HelpAndVersionAreTheEngines) {
    EXPECT_EQ("3.0.0\n", run_program(std::string(QUORVANE) + " --version --input-file x").out);
    EXPECT_THAT(run_program(std::string(QUORVANE) + " --input-file= --help").out,
                HasSubstr("--segment-tolerance"));
    const ProgramResult none = run_program(std::string(QUORVANE) + " --input-file");
    EXPECT_EQ(1, none.status);
    EXPECT_THAT(none.err, testing::StartsWith("error: "));
}

TEST_F(Program, StepsRunByThemselvesGiveTheRunsFiles) {
    ASSERT_EQ(0, run_program(command(in, out, "--keep-intermediates " + dir / "k")).status);
    const std::string k = dir / "k/";
    const std::string step = std::string(QUORVANE_STEP) + " ";
    const ProgramResult highpass = run_program(step + "highpass " + in + " " + dir / "1.wav");
    EXPECT_EQ(0, highpass.status);
    EXPECT_THAT(highpass.out, testing::MatchesRegex("-[0-9]+\\.[0-9]+\n"));
    EXPECT_EQ(read_text(k + "_01.wav"), read_text(dir / "1.wav"));

    EXPECT_EQ(0, run_program(step + "wrap_segment " + k + "_05.txt " + dir / "6.clt" +
                             " -12 16000 0.05 --segment-tolerance 3.5")
                     .status);
    EXPECT_EQ(read_text(k + "_06.clt"), read_text(dir / "6.clt"));
    EXPECT_EQ(
        0, run_program(step + "apply_gains 50 " + k + "_09.txt " + k + "_04.wav " + dir / "10.wav")
               .status);
    EXPECT_EQ(read_text(k + "_10.wav"), read_text(dir / "10.wav"));

    write_text(dir / "values.txt", "1\n1\n1\n5\n5\n5\n");
    EXPECT_EQ(0, run_program(step + "segment " + dir / "values.txt" + " " + dir / "fit.txt" + " " +
                             dir / "breaks.txt" + " --tolerance 0.1")
                     .status);
    EXPECT_EQ("1\n1\n1\n5\n5\n5\n", read_text(dir / "fit.txt"));
    EXPECT_EQ("3\n", read_text(dir / "breaks.txt"));

    EXPECT_EQ(2, run_program(step + "polish").status);
    EXPECT_EQ(2, run_program(step + "apply_gains 50").status);
    EXPECT_EQ(1, run_program(step + "wrap_segment r c -12 16000 0.05 --bin-size 3").status);
}

TEST_F(Program, NoStepWritesOverItsInput) {
    const TempDir kept;
    ASSERT_EQ(0, run_program(command(in, out, "--keep-intermediates " + kept.path())).status);

    struct Row {
        const char* words;
        const char* input;
        const char* words_between;
        const char* words_behind;
    };

    const Row rows[] = {{"highpass", "_01.wav", "", ""},
                        {"gate -k 250", "_01.wav", "", ""},
                        {"reduce_loud_peak", "_02.wav", "", ""},
                        {"reduce_loud", "_03.wav", "", ""},
                        {"calc_rms", "_04.wav", "", ""},
                        {"segment", "_05.txt", "", "breaks.txt"},
                        {"segment", "_05.txt", "fit.txt", ""},
                        {"wrap_segment", "_05.txt", "", "-12 16000 0.05"},
                        {"calculate_gains", "_04.wav", "_06.clt gains.txt", ""},
                        {"calculate_gains", "_04.wav", "_06.clt", "levels.txt"},
                        {"calculate_gains _04.wav", "_06.clt", "gains.txt", ""},
                        {"smooth_gains", "_08.txt", "", ""},
                        {"apply_gains 50", "_09.txt", "_04.wav", ""},
                        {"apply_gains 50 _09.txt", "_04.wav", "", ""},
                        {"normalize", "_10.wav", "", ""}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.words) + " " + row.words_between);
        const std::string input = kept / row.input;
        const std::string before = read_text(input);
        ASSERT_NE("", before);
        const ProgramResult run = run_program(
            "cd " + kept.path() + " && ln -sf " + row.input + " link && " + QUORVANE_STEP + " " +
            row.words + " " + row.input + " " + row.words_between + " link " + row.words_behind);
        EXPECT_EQ(1, run.status);
        EXPECT_THAT(run.out + run.err, HasSubstr("link: is the input and would be overwritten"));
        EXPECT_EQ(before, read_text(input));
    }
}

/**
 * Loudness range in dB, as EBU Tech 3342 takes it but without the frequency weighting: from the
 * 10th to the 95th percentile of the levels of windows of 3 s, those 20 dB below their mean left
 * out.
 */
double loudness_range_db(const Signal& signal) {
    const long long window = 3LL * signal.sample_rate_hz;
    std::vector<double> powers;
    double mean = 0.0;
    for (long long at = 0; at + window <= signal.frames(); at += signal.sample_rate_hz / 10) {
        powers.push_back(0.0);
        for (int channel = 0; channel < signal.channels; ++channel) {
            powers.back() += std::pow(rms_of(signal, at, at + window, channel), 2.0);
        }
        mean += powers.back();
    }
    mean /= static_cast<double>(powers.size());
    powers.erase(std::remove_if(powers.begin(), powers.end(),
                                [mean](double power) { return power < mean / 100.0; }),
                 powers.end());
    std::sort(powers.begin(), powers.end());
    return 10.0 * std::log10(powers[powers.size() * 95 / 100] / powers[powers.size() / 10]);
}

TEST_F(Program, RealSpeakersComeOutEquallyLoud) {
    const std::string recording = std::string(RECORDINGS) + "/reading_16k_mono.flac";
    const std::string leveled = dir / "leveled.flac";
    ASSERT_EQ(0, run_program(command(recording, leveled)).status);
    EXPECT_GT(loudness_range_db(read_sound(recording)), 11.0);
    EXPECT_LT(loudness_range_db(read_sound(leveled)), 4.0);
}

}  // namespace
