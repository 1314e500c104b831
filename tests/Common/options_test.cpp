#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "Common/CommandLine.h"
#include "Common/gate/CommandLine.h"
#include "Common/gate/gate.h"
#include "Common/highpass/CommandLine.h"
#include "Common/highpass/highpass.h"
#include "Common/normalize/CommandLine.h"
#include "Common/normalize/normalize.h"
#include "Common/reduce_loud/CommandLine.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/segment/CommandLine.h"
#include "tests/support/fixtures.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

int parse(CCLArgs& args, const std::vector<std::string>& words) {
    return call([&args](int argc,
                        const char** argv) { return args.GetArgs(argc, const_cast<char**>(argv)); },
                words);
}

TEST(EngineOptions, TheTwoPathsAloneLeaveEveryTuningValueAtItsDefault) {
    options::tolerance = "9";
    options::bin_size = "9";
    CCLArgs args;
    EXPECT_EQ(0, parse(args, {"", "--input-file", "i", "--output-file", "o"}));
    EXPECT_EQ("i", args.input_file);
    EXPECT_EQ("o", args.output_file);
    EXPECT_EQ(0, args.bit_depth);
    EXPECT_EQ("3.5", options::tolerance);
    EXPECT_EQ("50", options::bin_size);
    EXPECT_EQ("-44.0", options::noise_floor);
    EXPECT_EQ("0.006", options::noise_threshold);
    EXPECT_EQ("24.0", options::gain_limit);
}

TEST(EngineOptions, TheCommandLineWinsOverTheOptionsFile) {
    const TempDir dir;
    write_text(dir / "options.txt",
               "segment-tolerance=2.5\nreduce-loud-release=80\nbit-depth=24\n");
    CCLArgs args;
    EXPECT_EQ(0, parse(args, {"", "--input-file", "i", "--output-file", "o", "-o",
                              dir / "options.txt", "--segment-tolerance", "1", "-s", "20"}));
    EXPECT_EQ("1", options::tolerance);
    EXPECT_EQ("80", options::release);
    EXPECT_EQ("20", options::bin_size);
    EXPECT_EQ(24, args.bit_depth);
    EXPECT_EQ(0, parse(args, {"", "--input-file", "i", "--output-file", "o"}));
}

struct RefusalRow {
    const char* name;
    std::vector<std::string> words;
    const char* out;
    const char* err;
};

TEST(EngineOptions, RefusalsSayWhy) {
    const RefusalRow rows[] = {
        {"version", {"", "--version"}, "3.0.0\n", ""},
        {"options file",
         {"", "--input-file", "i", "--output-file", "o", "-o", "/no/file"},
         "",
         "error opening /no/file\n"},
        {"options file that is a folder",
         {"", "--input-file", "i", "--output-file", "o", "-o", "/"},
         "",
         "error opening /\n"},
#ifdef __linux__
        {"options file that opens and cannot be read",
         {"", "--input-file", "i", "--output-file", "o", "-o", "/proc/self/mem"},
         "",
         "error opening /proc/self/mem\n"},
#endif
        {"a value like a placeholder",
         {"", "--bit-depth", "%value%"},
         "",
         "error: the argument ('%value%') for option '--bit-depth' is invalid\n"},
        {"an option like one",
         {"", "--%canonical_option%"},
         "",
         "error: unrecognised option '--%canonical_option%'\n"},
        {"stray words",
         {"", "--input-file", "i", "--output-file", "o", "stray"},
         "",
         "error: too many positional options have been specified on the command line\n"},
        {"unknown option",
         {"", "--loudness", "3"},
         "",
         "error: unrecognised option '--loudness'\n"},
        {"bit depth",
         {"", "--input-file", "i", "--output-file", "o", "-b", "12"},
         "",
         "Unknown bit depth: 12\n"},
    };
    for (const RefusalRow& row : rows) {
        SCOPED_TRACE(row.name);
        const CapturedOutput captured;
        CCLArgs args;
        EXPECT_NE(0, parse(args, row.words));
        EXPECT_EQ(row.out, captured.out());
        EXPECT_EQ(row.err, captured.err());
    }
}

TEST(EngineOptions, HelpGoesToTheOutputAndAMissingPathShowsTheOptionsAsAnError) {
    const CapturedOutput captured;
    CCLArgs args;
    EXPECT_NE(0, parse(args, {"", "--help"}));
    EXPECT_THAT(captured.out(), StartsWith("Allowed options:"));
    EXPECT_THAT(captured.out(), HasSubstr("--segment-tolerance arg (=3.5)"));
    EXPECT_THAT(captured.out(), HasSubstr("Required options:"));
    EXPECT_NE(0, parse(args, {"", "--input-file", "i"}));
    EXPECT_EQ(captured.out(), captured.err());
}

TEST(StepOptions, TakePositionalFilesNegativeValuesAndAnOptionsFile) {
    const TempDir dir;
    write_text(dir / "options.txt", "gate__attack=11\ngate__release=22\n");
    gate::GateArgs args;
    call([&args](int argc, const char** argv) { args.GetArgs(argc, argv); },
         {"gate", "-x", "-30.5", "--gate__attack", "33", "-o", dir / "options.txt", "in.wav",
          "out.wav", "--gate__threshold_release", "-51"});
    EXPECT_EQ(-30.5, args.attenuation_max_db);
    EXPECT_EQ(33, args.attack_ms);   // the command line's
    EXPECT_EQ(22, args.release_ms);  // the file's
    EXPECT_EQ(250, args.hold_ms);    // the default
    EXPECT_EQ(-39.0, args.threshold_attack_db);
    EXPECT_EQ(-51.0, args.threshold_release_db);
    EXPECT_EQ("in.wav", args.sound_file_in);
    EXPECT_EQ("out.wav", args.sound_file_out);
}

TEST(StepOptions, MistakesFailTheStepWithTheirReason) {
    struct Row {
        const char* name;
        int (*entry)(int, const char**);
        std::vector<std::string> words;
        const char* reason;
    };

    const Row rows[] = {
        {"a letter of two options", gate::_tmain, {"gate", "-t", "-40", "i", "o"}, "ambiguous"},
        {"unknown here",
         reduce_loud::_tmain,
         {"reduce_loud", "--verbosity", "1", "i", "o"},
         "error: unrecognised option '--verbosity'"},
        {"no number", gate::_tmain, {"gate", "--gate__attack", "soon", "i", "o"}, "error: "},
        {"options file",
         gate::_tmain,
         {"gate", "-o", "/no/file", "i", "o"},
         "error opening /no/file\n"},
        {"no output file", gate::_tmain, {"gate", "i"}, "an input and an output"},
        {"empty", gate::_tmain, {"gate"}, "gate: no arguments"},
        {"bit depth",
         normalize::_tmain,
         {"normalize", "-b", "12", "i", "o"},
         "Unknown bit depth: 12\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const CapturedOutput captured;
        EXPECT_EQ(1, call(row.entry, row.words));
        EXPECT_THAT(captured.err(), HasSubstr(row.reason));
    }
}

TEST(SegmentOptions, NeedALimitOrATolerance) {
    const CapturedOutput captured;
    segment::CCLArgs args;
    const auto parse_segment = [&args](int argc, const char** argv) {
        return args.GetArgs(argc, argv);
    };
    EXPECT_EQ(1, call(parse_segment, {"segment"}));
    EXPECT_EQ("One of max-breakpoints or tolerance must be set\n", captured.out());
    EXPECT_EQ(1, call(parse_segment, {"segment", "--tolerance", "x"}));
    EXPECT_THAT(captured.out(), HasSubstr("Error in command line: "));
    EXPECT_EQ(0, call(parse_segment, {"segment", "-t", "3", "-o", "/no/file"}));
    EXPECT_EQ(3.0, args.tolerance);
    // A socket is there and cannot be opened.
    const TempDir dir;
    const int file = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (dir / "s").c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(0, bind(file, reinterpret_cast<sockaddr*>(&address), sizeof address));
    EXPECT_EQ(0, call(parse_segment, {"segment", "-t", "4", "-o", dir / "s"}));
    EXPECT_EQ(4.0, args.tolerance);
    close(file);
}

TEST(SegmentOptions, TheMostBreakpointsAreWhatTheChunkHasRoomFor) {
    struct Row {
        std::uint16_t chunk, shortest, most, expected;
    };

    // limit = chunk / shortest - 1 stands when limit <= most - 1; 0 - 1 is 65535, so always for 0
    const Row rows[] = {{100, 20, 0, 4},  {100, 20, 4, 4},  {100, 20, 3, 3},
                        {100, 20, 30, 4}, {19, 20, 30, 30}, {20, 20, 30, 0}};
    for (const Row& row : rows) {
        segment::CCLArgs args;
        args.chunk_size = row.chunk;
        args.min_segment_length = row.shortest;
        args.max_breakpoints = row.most;
        args.UpdateNMaxBreakpoints();
        EXPECT_EQ(row.expected, args.max_breakpoints)
            << row.chunk << " " << row.shortest << " " << row.most;
    }
}

}  // namespace
