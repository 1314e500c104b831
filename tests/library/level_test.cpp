#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cfenv>
#include <cstring>
#include <locale>

#include "tests/library/library_support.h"

namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/** The command with its options, and the same for the library. */
struct Way {
    const char* words;
    const char* target;
    int plain;
    const char* tuning;
};

constexpr Way kWays[] = {{"", nullptr, 0, nullptr},
                         {"--plain", nullptr, 1, nullptr},
                         {"--for podcast", "podcast", 0, nullptr},
                         {"--plain --for lufs=-20:tp=-2", "lufs=-20:tp=-2", 1, nullptr},
                         {"--segment-tolerance=5", nullptr, 0, "--segment-tolerance=5"}};

constexpr int kTypes[] = {QUORVANE_FLOAT32, QUORVANE_FLOAT64, QUORVANE_INT16, QUORVANE_INT32};

quorvane_options options_of(const Way& way) {
    quorvane_options options = default_options();
    options.target = way.target;
    options.plain = way.plain;
    options.tuning = &way.tuning;
    options.tuning_count = way.tuning != nullptr ? 1 : 0;
    return options;
}

Signal speech(int channels) {
    return signals::speech(6.3, 16000, channels);
}

/** The command's samples of a WAV file with these frames. */
Frames by_command(const Signal& signal, int type, const std::string& words) {
    const TempDir dir;
    write_sound(dir / "in.wav", signal, wav_format(type));
    const ProgramResult run = run_program(std::string(QUORVANE) + " -q --no-config " + words +
                                          " -o " + dir / "out.wav" + " " + dir / "in.wav");
    EXPECT_EQ(0, run.status) << run.err;
    return read_frames(dir / "out.wav", type);
}

TEST(LibraryLevel, GivesTheSamplesOfTheCommand) {
    int channels = 1;
    for (const Way& way : kWays) {
        for (const int type : kTypes) {
            SCOPED_TRACE(std::string(way.words) + ", type " + std::to_string(type));
            channels = 3 - channels;
            const Signal signal = speech(channels);
            const Handle leveler = new_leveler(options_of(way));
            EXPECT_EQ(by_command(signal, type, way.words).bytes,
                      leveled(leveler, frames_of(signal, type)));
            EXPECT_EQ(QUORVANE_LEVELED, quorvane_get_outcome(leveler.get()));
        }
    }
}

TEST(LibraryLevel, TakesManyChannelsAsTheCommandDoes) {
    for (const int channels : {3, 6}) {
        SCOPED_TRACE(channels);
        const Signal signal = speech(channels);
        for (const Way& way : {kWays[0], kWays[2]}) {
            SCOPED_TRACE(way.words);
            EXPECT_EQ(by_command(signal, QUORVANE_FLOAT32, way.words).bytes,
                      leveled(new_leveler(options_of(way)), frames_of(signal, QUORVANE_FLOAT32)));
        }
    }
}

TEST(LibraryLevel, GivesTheFileOfTheCommand) {
    const TempDir dir;
    for (const char* name : {"talk.wav", "talk.flac"}) {
        SCOPED_TRACE(name);
        const std::string in = dir / name;
        const bool is_flac = std::strcmp(name, "talk.flac") == 0;
        write_sound(in, speech(1), is_flac ? SF_FORMAT_FLAC | SF_FORMAT_PCM_16 : kWav16);
        const std::string ours = dir / (std::string("ours-") + name);
        const std::string theirs = dir / (std::string("theirs-") + name);
        ASSERT_EQ(0, run_program(std::string(QUORVANE) + " -q --no-config --for podcast -o " +
                                 theirs + " " + in)
                         .status);
        quorvane_options options = default_options();
        options.target = "podcast";
        const Handle leveler = new_leveler(options);
        ASSERT_EQ(QUORVANE_OK, quorvane_level_file(leveler.get(), in.c_str(), ours.c_str()))
            << quorvane_last_error(leveler.get());
        EXPECT_EQ(read_text(theirs), read_text(ours));
        EXPECT_THAT(quorvane_verdict(leveler.get()), HasSubstr("podcast"));
        EXPECT_EQ(QUORVANE_EXISTS, quorvane_level_file(leveler.get(), in.c_str(), ours.c_str()));
        EXPECT_EQ(QUORVANE_BAD_ARGUMENT,
                  quorvane_level_file(leveler.get(), in.c_str(), in.c_str()));
        EXPECT_EQ(QUORVANE_BAD_ARGUMENT,
                  quorvane_level_file(leveler.get(), in.c_str(), (dir / "talk.ogg").c_str()));
    }
}

TEST(LibraryLevel, GivesTheMediaFileOfTheCommand) {
    const TempDir dir;
    write_sound(dir / "talk.wav", speech(2), kWav16);
    for (const char* name : {"talk.mp3", "talk.m4a", "talk.mp4"}) {
        SCOPED_TRACE(name);
        const std::string in = dir / name;
        const std::string picture =
            std::string(name) == "talk.mp4" ? " -f lavfi -i testsrc=s=64x64:d=6 -c:v mpeg4" : "";
        ASSERT_EQ(
            0, run_program("ffmpeg -v error -i " + dir / "talk.wav" + picture + " " + in).status);
        const std::string theirs = dir / "theirs-" + name;
        ASSERT_EQ(
            0,
            run_program(std::string(QUORVANE) + " -q --no-config -o " + theirs + " " + in).status);
        const std::string ours = dir / "ours-" + name;
        const Handle leveler = new_leveler();
        ASSERT_EQ(QUORVANE_OK, quorvane_level_file(leveler.get(), in.c_str(), ours.c_str()))
            << quorvane_last_error(leveler.get());
        EXPECT_TRUE(read_text(theirs) == read_text(ours));
    }
}

TEST(LibraryLevel, ReadsAndWritesAnyLayout) {
    const Frames frames = frames_of(speech(2), QUORVANE_FLOAT32);
    const Handle leveler = new_leveler();
    const std::vector<char> expected = leveled(leveler, frames);
    const std::size_t count = frames.frames();
    std::vector<float> planes[2];
    for (int channel = 0; channel < 2; ++channel) {
        planes[channel].resize(count);
        for (std::size_t i = 0; i < count; ++i) {
            std::memcpy(&planes[channel][i], &frames.bytes[(2 * i + channel) * sizeof(float)],
                        sizeof(float));
        }
    }
    void* const places[2] = {planes[0].data(), planes[1].data()};
    quorvane_audio audio = frames.audio();
    audio.samples = nullptr;
    audio.planes = const_cast<const void* const*>(places);
    quorvane_buffer buffer{};
    buffer.size = sizeof buffer;
    buffer.planes = places;  // in the input's own memory
    ASSERT_EQ(QUORVANE_OK, quorvane_level(leveler.get(), &audio, &buffer));
    std::vector<char> woven(expected.size());
    for (std::size_t i = 0; i < 2 * count; ++i) {
        std::memcpy(&woven[i * sizeof(float)], &planes[i % 2][i / 2], sizeof(float));
    }
    EXPECT_EQ(expected, woven);

    // Backwards in memory.
    std::vector<float> turned(2 * count);
    for (std::size_t i = 0; i < 2 * count; ++i) {
        std::memcpy(&turned[2 * count - 1 - i], &frames.bytes[i * sizeof(float)], sizeof(float));
    }
    audio = frames.audio();
    audio.samples = &turned.back();
    audio.frame_stride = -2 * static_cast<std::ptrdiff_t>(sizeof(float));
    audio.channel_stride = -static_cast<std::ptrdiff_t>(sizeof(float));
    std::vector<char> result(expected.size());
    buffer = buffer_of(result);
    ASSERT_EQ(QUORVANE_OK, quorvane_level(leveler.get(), &audio, &buffer));
    EXPECT_EQ(expected, result);
}

/** Writes the frames in pieces and reads the result in others. */
std::vector<char> pushed(const Handle& leveler, const Frames& frames) {
    EXPECT_EQ(QUORVANE_OK,
              quorvane_begin(leveler.get(), frames.type, frames.rate_hz, frames.channels));
    const std::size_t total = frames.frames();
    std::size_t piece = 1;
    for (std::size_t done = 0; done < total; piece = piece * 3 % 5000 + 1) {
        quorvane_audio audio = frames.audio();
        audio.frames = std::min(piece, total - done);
        audio.samples = frames.bytes.data() + done * frames.frame_bytes();
        EXPECT_EQ(QUORVANE_OK, quorvane_write(leveler.get(), &audio));
        done += audio.frames;
    }
    EXPECT_EQ(QUORVANE_OK, quorvane_finish(leveler.get())) << quorvane_last_error(leveler.get());
    std::vector<char> result;
    for (uint64_t got = 1; got > 0;) {
        std::vector<char> block(777 * frames.frame_bytes());
        const quorvane_buffer buffer = buffer_of(block);
        EXPECT_EQ(QUORVANE_OK, quorvane_read(leveler.get(), &buffer, 777, &got));
        result.insert(result.end(), block.begin(),
                      block.begin() + static_cast<std::ptrdiff_t>(got * frames.frame_bytes()));
    }
    return result;
}

TEST(LibraryLevel, TakesPushedFramesInMemoryAndOnTheDisk) {
    const Frames frames = frames_of(speech(2), QUORVANE_INT16);
    const TempDir scratch;
    quorvane_options options = default_options();
    const std::vector<char> expected = leveled(new_leveler(options), frames);
    options.scratch_folder = scratch.path().c_str();
    for (const std::uint64_t memory_bytes : {0, 50000, 1}) {  // the second: moves on the way
        SCOPED_TRACE(memory_bytes);
        options.memory_bytes = memory_bytes;
        const Handle leveler = new_leveler(options);
        EXPECT_EQ(expected, pushed(leveler, frames));
        EXPECT_EQ(expected, pushed(leveler, frames)) << "again";
        EXPECT_EQ(expected, leveled(leveler, frames));
    }
    EXPECT_THAT(scratch.entries(), IsEmpty());
}

TEST(LibraryLevel, LimitsToATarget) {
    Signal signal = speech(1);
    for (double& sample : signal.samples) {
        sample *= 0.2;
    }
    quorvane_options options = default_options();
    options.target = "podcast";
    for (const int type : kTypes) {
        SCOPED_TRACE(type);
        const Handle leveler = new_leveler(options);
        const Frames frames = frames_of(signal, type);
        std::vector<char> result(frames.bytes.size());
        const quorvane_audio audio = frames.audio();
        const quorvane_buffer buffer = buffer_of(result);
        ASSERT_EQ(QUORVANE_OK, quorvane_limit(leveler.get(), &audio, &buffer))
            << quorvane_last_error(leveler.get());
        quorvane_loudness after{};
        after.size = sizeof after;
        ASSERT_EQ(QUORVANE_OK, quorvane_get_loudness(leveler.get(), QUORVANE_AFTER, &after));
        EXPECT_LE(after.true_peak_dbtp, -1 + 0.02);

        Frames limited = frames;
        limited.bytes = result;
        const quorvane_audio again = limited.audio();
        ASSERT_EQ(QUORVANE_OK, quorvane_measure(leveler.get(), &again));
        quorvane_loudness measured{};
        measured.size = sizeof measured;
        ASSERT_EQ(QUORVANE_OK, quorvane_get_loudness(leveler.get(), QUORVANE_BEFORE, &measured));
        EXPECT_NEAR(after.integrated_lufs, measured.integrated_lufs, 1e-9);
    }
}

std::vector<double> loudness_of(const Handle& leveler, const quorvane_audio& audio) {
    EXPECT_EQ(QUORVANE_OK, quorvane_measure(leveler.get(), &audio))
        << quorvane_last_error(leveler.get());
    quorvane_loudness found{};
    found.size = sizeof found;
    EXPECT_EQ(QUORVANE_OK, quorvane_get_loudness(leveler.get(), QUORVANE_BEFORE, &found));
    return {found.integrated_lufs, found.short_term_lufs,  found.momentary_lufs, found.range_lu,
            found.true_peak_dbtp,  found.sample_peak_dbfs, found.rms_dbfs};
}

// Frames without gaps are read where they are, others from a file: long enough for two halves.
TEST(LibraryLevel, MeasuresFramesWhereTheyAre) {
    const TempDir dir;
    const std::string missing = dir / "missing";
    quorvane_options options = default_options();
    options.measure = QUORVANE_MEASURE_LOUDNESS;
    for (const int type : kTypes) {
        SCOPED_TRACE(type);
        options.second_thread = type % 2;
        const Frames frames = frames_of(signals::speech(31.3, 8000, 1), type);
        quorvane_audio audio = frames.audio();
        options.scratch_folder = nullptr;
        options.memory_bytes = 0;
        const void* const planes[] = {frames.bytes.data()};
        audio.samples = nullptr;
        audio.planes = planes;
        const std::vector<double> expected = loudness_of(new_leveler(options), audio);
        options.scratch_folder = missing.c_str();
        options.memory_bytes = 1;
        EXPECT_EQ(expected, loudness_of(new_leveler(options), frames.audio()));
        EXPECT_GT(0, expected[0]);
    }
}

TEST(LibraryLevel, ReportsWhatItFound) {
    // One side is silent, which is a finding.
    Signal signal = signals::stereo(speech(1), signals::silence(speech(1).frames(), 16000));
    const Handle leveler = new_leveler();
    leveled(leveler, frames_of(signal, QUORVANE_FLOAT32));
    std::size_t count = 0;
    double step_s = 0;
    const double* const curve = quorvane_gain_curve(leveler.get(), &count, &step_s);
    ASSERT_NE(nullptr, curve);
    EXPECT_NEAR(6.3, static_cast<double>(count) * step_s, 0.1);
    ASSERT_LT(0U, quorvane_passage_count(leveler.get()));
    quorvane_passage passage{};
    passage.size = sizeof passage;
    double end_s = 0;
    for (std::size_t i = 0; i < quorvane_passage_count(leveler.get()); ++i) {
        ASSERT_EQ(QUORVANE_OK, quorvane_get_passage(leveler.get(), i, &passage));
        EXPECT_LE(end_s, passage.begin_s + 1e-9);
        end_s = passage.end_s;
    }
    std::vector<std::string> codes;
    quorvane_finding finding{};
    finding.size = sizeof finding;
    for (std::size_t i = 0; i < quorvane_finding_count(leveler.get()); ++i) {
        ASSERT_EQ(QUORVANE_OK, quorvane_get_finding(leveler.get(), i, &finding));
        codes.emplace_back(finding.code);
        EXPECT_STRNE("", finding.sentence);
    }
    EXPECT_THAT(codes, testing::Contains("side-silent"));
    EXPECT_THAT(quorvane_facts_json(leveler.get()), HasSubstr("\"side-silent\""));
    EXPECT_THAT(quorvane_facts_json(leveler.get()), testing::Not(HasSubstr("/dev/shm")));
    EXPECT_NE(nullptr, quorvane_short_term(leveler.get(), QUORVANE_AFTER, &count, &step_s));
}

TEST(LibraryLevel, HandsBackSilence) {
    const Frames frames = frames_of(signals::silence(16000, 16000), QUORVANE_FLOAT32);
    const Handle leveler = new_leveler();
    EXPECT_EQ(frames.bytes, leveled(leveler, frames));
    EXPECT_EQ(QUORVANE_UNCHANGED, quorvane_get_outcome(leveler.get()));
    EXPECT_STRNE("", quorvane_reason(leveler.get()));
}

/** Decimal commas and other groups, as a program in another language may have them. */
struct Commas : std::numpunct<char> {
    char do_decimal_point() const override { return ','; }

    char do_thousands_sep() const override { return '.'; }

    std::string do_grouping() const override { return "\1"; }
};

TEST(LibraryLevel, DoesNotDependOnTheProgramAroundIt) {
    const Frames frames = frames_of(speech(1), QUORVANE_FLOAT64);
    for (const Way& way : kWays) {
        SCOPED_TRACE(way.words);
        const std::vector<char> expected = leveled(new_leveler(options_of(way)), frames);
        const std::locale before = std::locale::global(std::locale(std::locale(), new Commas));
        std::fesetround(FE_UPWARD);
        const std::vector<char> result = leveled(new_leveler(options_of(way)), frames);
        EXPECT_EQ(FE_UPWARD, std::fegetround());
        std::fesetround(FE_TONEAREST);
        std::locale::global(before);
        EXPECT_EQ(expected, result);
    }
}

TEST(LibraryLevel, WorksInAForkedChild) {
    const Frames frames = frames_of(speech(1), QUORVANE_FLOAT32);
    quorvane_options options = default_options();
    options.second_thread = 1;
    const Handle leveler = new_leveler(options);
    const std::vector<char> expected = leveled(leveler, frames);
    const pid_t child = fork();
    if (child == 0) {
        _exit(leveled(leveler, frames) == expected ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ(expected, leveled(leveler, frames));
}

}  // namespace
