#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::EndsWith;
using testing::HasSubstr;

namespace {

/** Sets the four bytes of the size behind the first "data". */
void set_data_size(const std::string& path, std::uint32_t size) {
    std::string file = read_text(path);
    memcpy(&file[file.find("data") + 4], &size, sizeof size);
    write_text(path, file);
}

/**
 * Makes talk.wav in the folder, 8 s at 16 kHz, and from it what the shell is told; returns words
 * that go there.
 */
std::string made_in(const TempDir& dir, const std::string& make) {
    write_sound(dir / "talk.wav", signals::speech(8, 16000), kWav16);
    const std::string in_folder = "cd " + dir.path() + " && ";
    EXPECT_EQ(0, run_program(in_folder + make).status);
    return in_folder;
}

// 16 kHz, 8 s: 128000 frames; MP3 frames of that rate have 576 samples.
TEST(Lengths, WhatIsThereIsLeveledAndADifferenceIsTold) {
    struct Row {
        const char* make;  // the input x.EXT, from talk.wav
        const char* input;
        double least_s;
        double most_s;
        const char* note;  // "": none
    };

    const Row rows[] = {
        {"cp talk.wav x.wav", "x.wav", 8, 8, ""},
        {"head -c 100044 talk.wav >x.wav", "x.wav", 3.125, 3.125,
         "cut short or damaged: 4.88 s of 8.00 s"},
        {"sndfile-convert talk.wav y.au; head -c 100024 y.au >x.au", "x.au", 3.125, 3.126,
         "cut short or damaged: 4.8"},
        {"ffmpeg -v error -i talk.wav -f wav - | cat >x.wav", "x.wav", 8, 8, ""},
        {"ffmpeg -v error -i talk.wav -f flac - | cat >x.flac", "x.flac", 8, 8, ""},
        {"sndfile-convert talk.wav y.flac; head -c 60000 y.flac >x.flac", "x.flac", 1, 7,
         "the end is missing from"},
        {"ffmpeg -v error -i talk.wav y.ogg; head -c 20000 y.ogg >x.ogg", "x.ogg", 1, 7.9,
         "last page is not marked"},
        {"ffmpeg -v error -i talk.wav -b:a 64k -write_xing 0 x.mp3", "x.mp3", 8, 8.2, ""},
        {"ffmpeg -v error -i talk.wav -q:a 6 -write_xing 0 x.mp3", "x.mp3", 8, 8.2, ""},
        {"ffmpeg -v error -i talk.wav y.mp3; head -c 9000 y.mp3 >x.mp3", "x.mp3", 1, 7.9,
         "the end is missing from"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.make);
        const TempDir dir;
        const std::string in_folder = made_in(dir, row.make);
        const ProgramResult result = run_program(in_folder + QUORVANE " --salvage -o out" +
                                                 strchr(row.input, '.') + " --json - " + row.input);
        ASSERT_EQ(0, result.status) << result.err;
        const auto facts = nlohmann::json::parse(result.out);
        EXPECT_EQ("leveled", facts["status"]);
        EXPECT_GE(facts["duration_s"], row.least_s);
        EXPECT_LE(facts["duration_s"], row.most_s);
        const std::string probed =
            run_program(in_folder +
                        "ffprobe -v error -show_entries format=duration -of csv=p=0 out" +
                        strchr(row.input, '.'))
                .out;
        EXPECT_NEAR(std::stod(probed), facts["duration_s"], 0.3);
        const std::string told = facts["notes"].dump();
        EXPECT_THAT(told, HasSubstr(row.note));
        const bool damaged = row.note[0] != '\0';
        EXPECT_EQ(damaged, told.find("cut short") != std::string::npos);
        EXPECT_EQ(damaged ? 1 : 0, run_program(in_folder + QUORVANE " -q -f --strict -o out" +
                                               strchr(row.input, '.') + " " + row.input)
                                       .status);
    }
}

TEST(Lengths, ASizeThatWasNeverFilledInCostsNothing) {
    const TempDir dir;
    write_sound(dir / "a.wav", signals::speech(8, 16000), kWav16);
    ASSERT_EQ(0, run_program(QUORVANE " -q " + dir / "a.wav").status);
    const std::string leveled = read_text(dir / "a-leveled.wav");
    set_data_size(dir / "a.wav", 0);
    ProgramResult result = run_program(QUORVANE " -f " + dir / "a.wav");
    EXPECT_EQ(0, result.status);
    EXPECT_TRUE(leveled == read_text(dir / "a-leveled.wav"));
    set_data_size(dir / "a.wav", 128000);
    result = run_program(QUORVANE " -f " + dir / "a.wav");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("128000 more follow that are not a chunk"));
}

// What stands behind the audio costs neither memory nor time by its size, and no sound. 256000
// bytes of audio; a list of one entry for each eight zero bytes would take 640 MB.
TEST(Lengths, WhatStandsBehindTheAudioIsMeasuredInBytes) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "the sanitizer reserves terabytes of addresses";
#endif
    struct Row {
        const char* make;  // x.wav, from talk.wav
        int status;
        const char* words;
    };

    const Row rows[] = {
        {"cp talk.wav x.wav; head -c 64M /dev/zero >>x.wav", 0,
         "67108864 bytes of zeros behind its audio were left out"},
        {"cp talk.wav x.wav; truncate -s 1G x.wav", 0,
         "1073485780 bytes of zeros behind its audio were left out"},
        {"cp talk.wav x.wav; head -c 2048 /dev/zero >>x.wav", 0, ""},
        {"cp talk.wav x.wav; (head -c 4096 /dev/zero; printf 'note\\4\\0\\0\\0kept') >>x.wav", 0,
         ""},
        {"cp talk.wav x.wav; (head -c 40000 /dev/zero; head -c 9 talk.wav | tr R '\\1') >>x.wav", 1,
         "40009 more follow that are not a chunk"},
        {"cp talk.wav x.wav; yes 'JUNK' | head -c 8000000 | tr '\\n' '\\0' | "
         "sed 's/JUNK./JUNK\\x00\\x00\\x00\\x00/g' >>x.wav",
         1, "more than 10000 chunks"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.make);
        const TempDir dir;
        const std::string in_folder = made_in(dir, row.make);
        const ProgramResult result =
            run_program(in_folder + "ulimit -v 600000 && " QUORVANE " --json - x.wav");
        EXPECT_EQ(row.status, result.status) << result.err;
        EXPECT_THAT(result.out, HasSubstr(row.words));
        if (row.status == 0) {
            const auto facts = nlohmann::json::parse(result.out);
            EXPECT_EQ(128000, facts["frames"]);
            EXPECT_EQ(row.words[0] == '\0' ? 0u : 1u, facts["notes"].size());
            const std::string output = read_text(dir / "x-leveled.wav");
            EXPECT_LT(output.size(), 260000u);
            EXPECT_EQ(strstr(row.make, "kept") != nullptr, output.find("kept") != output.npos);
        }
    }
}

// A header of size 0, and digital silence where the audio begins.
TEST(Lengths, SilenceIsNotTakenForPadding) {
    const TempDir dir;
    Signal signal = signals::speech(8, 16000);
    std::fill_n(signal.samples.begin(), 8000, 0.0);
    write_sound(dir / "a.wav", signal, kWav16);
    set_data_size(dir / "a.wav", 0);
    const ProgramResult result = run_program(QUORVANE " --json - " + dir / "a.wav");
    EXPECT_EQ(0, result.status) << result.err;
    EXPECT_EQ(128000, nlohmann::json::parse(result.out)["frames"]);
}

TEST(Lengths, TheEnginesCommandTellsOfThemToo) {
    struct Row {
        const char* make;  // the input x.EXT, from talk.wav
        const char* input;
        int status;
        const char* words;  // the end of what is said
    };

    const Row rows[] = {
        {"ffmpeg -v error -i talk.wav -f wav - | cat >x.wav", "x.wav", 0, "leveled, out.wav\n"},
        {"head -c 100044 talk.wav >x.wav", "x.wav", 0,
         "out.wav: is cut short: 100000 of 256000 bytes of audio are there\n"},
        {"cp talk.wav x.wav; printf '\\0\\0\\0\\0' | dd of=x.wav bs=1 seek=40 conv=notrunc",
         "x.wav", 0, "0.05 s: its header gives its audio the size 0\n"},
        {"cp talk.wav x.wav; printf '\\0\\0\\1\\0' | dd of=x.wav bs=1 seek=40 conv=notrunc",
         "x.wav", 1, "190464 more follow that are not a chunk; its header needs a repair first\n"},
        {"ffmpeg -v error -i talk.wav y.ogg; head -c 20000 y.ogg >x.ogg", "x.ogg", 0,
         "out.ogg: is cut short: its last page is not marked as the last\n"},
        {"ffmpeg -v error -i talk.wav -b:a 64k -write_xing 0 x.mp3", "x.mp3", 0,
         "leveled, out.mp3\n"},
        {"ffmpeg -v error -i talk.wav -q:a 6 -write_xing 0 x.mp3", "x.mp3", 1,
         " s would be read\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.make);
        const TempDir dir;
        const std::string in_folder = made_in(dir, row.make);
        const ProgramResult result = run_program(in_folder + QUORVANE " --input-file " + row.input +
                                                 " --output-file out" + strchr(row.input, '.'));
        EXPECT_EQ(row.status, result.status) << result.err;
        EXPECT_THAT(result.out + result.err, EndsWith(row.words));
    }
}

TEST(Lengths, SamplesAboveFullScaleAreTold) {
    const TempDir dir;
    Signal signal = signals::speech(4, 16000);
    for (double& sample : signal.samples) {
        sample *= 8;
    }
    write_sound(dir / "a.wav", signal, kWavFloat);
    EXPECT_THAT(run_program(QUORVANE " --json - " + dir / "a.wav").out, HasSubstr("above 0 dBFS"));
}

}  // namespace
