#include <fcntl.h>
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>

#include "tests/Common/level_fixture.h"

using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class LevelFiles : public Level {};

TEST_F(LevelFiles, NothingThatStandsAtAnIntermediatesPlaceIsWrittenOver) {
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

TEST_F(LevelFiles, HiddenIntermediatesChangeNothingThatCanBeSeen) {
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

TEST_F(LevelFiles, AFinalFileThatWasLentGetsTheSameBytesAndIsMeasured) {
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

TEST_F(LevelFiles, AFinalFileThatCannotTakeItHasItsCallersName) {
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

TEST_F(LevelFiles, TheDiskMustHaveThreeTimesTheInputFree) {
    // Two fifths of what is free, without taking it: a hole behind the audio.
    write_sound(in, signals::speech(1.0, 8000), kWav16);
    const std::uintmax_t free = std::filesystem::space("/").available;
    ASSERT_EQ(0, truncate(in.c_str(), static_cast<off_t>(free / 5 * 2)));
    EXPECT_EQ(1, run_file());
    EXPECT_EQ("Insufficient disk space for temporary files.", messages + errors);
    EXPECT_THAT(temporary.entries(), IsEmpty());
}

TEST_F(LevelFiles, WithoutATemporaryDirectoryTheRunFails) {
    hooks::use_temporary_directory("");
    EXPECT_EQ(1, run(signals::speech(1.0)));
    EXPECT_EQ("There is no directory for temporary files.", errors);
    hooks::use_temporary_directory("/no/such/folder/");
    EXPECT_EQ(1, run_file());
    EXPECT_EQ("error opening sound file \"/no/such/folder/_01.wav\"", errors);
    EXPECT_THAT(levelOutcome()->reason, HasSubstr("No such file or directory"));
}

}  // namespace
