#include <gmock/gmock.h>
#include <taglib/mp4file.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>
#include <vector>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::HasSubstr;

/*
 * What ffmpeg decodes of the program's outputs is compared with what it decodes of the inputs, or
 * of the output of the same recording without damage: as many samples, each at its time.
 */

namespace {

/** All samples of the first sound, one channel. */
std::vector<float> decoded(const std::string& path) {
    const ProgramResult result =
        run_program("ffmpeg -v quiet -i " + path + " -map 0:a:0 -ac 1 -f f32le -");
    std::vector<float> samples(result.out.size() / sizeof(float));
    if (!samples.empty()) {
        std::memcpy(samples.data(), result.out.data(), samples.size() * sizeof(float));
    }
    return samples;
}

/** Correlation, -1 to 1, of the last `count` samples of the shorter one with the same places. */
double likeness_at_end(const std::vector<float>& a,
                       const std::vector<float>& b,
                       std::size_t count) {
    const std::size_t end = std::min(a.size(), b.size());
    double both = 0;
    double power_a = 1e-20;
    double power_b = 1e-20;
    for (std::size_t i = end - std::min(count, end); i < end; ++i) {
        const double x = static_cast<double>(a[i]);
        const double y = static_cast<double>(b[i]);
        both += x * y;
        power_a += x * x;
        power_b += y * y;
    }
    return both / std::sqrt(power_a * power_b);
}

/** The cause and the notes of a run with --json. */
std::string messages_of(const ProgramResult& result) {
    const auto facts = nlohmann::json::parse(result.out);
    return facts["cause"].dump() + facts["notes"].dump();
}

std::string leveled_name(const std::string& path) {
    const std::size_t dot = path.rfind('.');
    return path.substr(0, dot) + "-leveled" + path.substr(dot);
}

/** A folder with talk.wav, 8 s of speech at the rate, and what a shell command makes of it. */
class Made {
  public:
    explicit Made(const std::string& make, int rate_hz = 16000, int channels = 1) {
        write_sound(dir_ / "talk.wav", signals::speech(8, rate_hz, channels), kWav16);
        const ProgramResult result = run_program("cd " + dir_.path() + " && " + make);
        EXPECT_EQ(0, result.status) << make << "\n" << result.err;
    }

    std::string operator/(const std::string& name) const { return dir_ / name; }

  private:
    TempDir dir_;
};

// The bit rates at which LAME leaves out the frame with the count, and shapes around them.
TEST(Mp3Shapes, ComeOutAtTheirLengthAndPlace) {
    struct Row {
        int rate_hz;
        int channels;
        const char* make;
    };

    const Row rows[] = {
        {44100, 1, "lame --quiet --resample 44.1 -m m -b 48 talk.wav x.mp3"},
        {44100, 2, "lame --quiet --resample 44.1 -b 56 talk.wav x.mp3"},
        {22050, 1, "lame --quiet --resample 22.05 -m m -b 24 talk.wav x.mp3"},
        {11025, 2, "lame --quiet --resample 11.025 -b 16 talk.wav x.mp3"},
        {8000, 1, "lame --quiet --resample 8 -m m -b 8 talk.wav x.mp3"},
        {48000, 1, "lame --quiet --resample 48 --abr 40 talk.wav x.mp3"},
        {16000, 1, "lame --quiet --resample 16 -V 6 talk.wav x.mp3"},
        {16000, 1, "ffmpeg -v error -i talk.wav -b:a 24k x.mp3"},
        {44100, 2, "ffmpeg -v error -i talk.wav -q:a 9 -write_xing 0 x.mp3"},
        {24000, 1, "ffmpeg -v error -i talk.wav -b:a 32k -write_xing 0 x.mp3"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.make);
        const Made made(row.make, row.rate_hz, row.channels);
        const ProgramResult result = run_program(QUORVANE " -q " + made / "x.mp3");
        ASSERT_EQ(0, result.status) << result.err;
        const std::vector<float> before = decoded(made / "x.mp3");
        const std::vector<float> after = decoded(made / "x-leveled.mp3");
        EXPECT_EQ(before.size(), after.size());
        const auto second = static_cast<std::size_t>(row.rate_hz);
        EXPECT_GT(likeness_at_end(before, after, 4 * second), 0.45);
    }
}

/** Bytes of a file changed from its middle on. */
void damage(const std::string& path, const char* how) {
    std::string bytes = read_text(path);
    const std::size_t middle = bytes.size() / 2;
    const std::string kind = how;
    if (kind == "zeros") {
        bytes.replace(middle, 1000, std::string(1000, '\0'));
    } else if (kind == "insert") {
        bytes.insert(middle, "fifty bytes that belong to no frame of any recording");
    } else if (kind == "delete") {
        bytes.erase(middle, 700);
    } else {
        bytes.resize(bytes.size() * 98 / 100);
    }
    write_text(path, bytes);
}

TEST(Damage, CostsWhatIsLostAndNoMore) {
    struct Row {
        const char* make;  // x.EXT
        const char* input;
        const char* damage;
        double most_lost_s;
    };

    const Row rows[] = {
        {"lame --quiet -b 64 talk.wav x.mp3", "x.mp3", "zeros", 0.4},
        {"lame --quiet -b 64 talk.wav x.mp3", "x.mp3", "insert", 0.4},
        {"lame --quiet -b 64 talk.wav x.mp3", "x.mp3", "delete", 0.4},
        {"ffmpeg -v error -i talk.wav -b:a 64k -write_xing 0 x.mp3", "x.mp3", "zeros", 0.4},
        {"sndfile-convert talk.wav x.flac", "x.flac", "zeros", 0.4},
        {"sndfile-convert talk.wav x.flac", "x.flac", "delete", 0.4},
        {"ffmpeg -v error -i talk.wav -page_duration 100000 x.ogg", "x.ogg", "zeros", 0.4},
        {"ffmpeg -v error -i talk.wav -c:a libopus -page_duration 100000 x.opus", "x.opus", "zeros",
         0.4},
        {"ffmpeg -v error -i talk.wav x.ac3", "x.ac3", "zeros", 0.4},
        {"ffmpeg -v error -i talk.wav x.ac3", "x.ac3", "insert", 0.4},
        {"ffmpeg -v error -i talk.wav x.aac", "x.aac", "insert", 0.4},
        {"ffmpeg -v error -i talk.wav -movflags +faststart x.m4a", "x.m4a", "zeros", 0.4},
        {"ffmpeg -v error -i talk.wav -c:a wmav2 -b:a 128k x.wma", "x.wma", "zeros", 0.4},
        {"ffmpeg -v error -i talk.wav -c:a adpcm_ima_wav x.wav", "x.wav", "insert", 0.4},
        {"ffmpeg -v error -i talk.wav -c:a adpcm_ima_wav x.wav", "x.wav", "delete", 0.4},
        {"ffmpeg -v error -i talk.wav -c:a adpcm_ms x.wav", "x.wav", "zeros", 0.4},
        {"ffmpeg -v error -i talk.wav -c:a adpcm_ms x.wav", "x.wav", "insert", 0.4},
        {"sndfile-convert -ms-adpcm talk.wav x.wav", "x.wav", "delete", 0.4},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.make) + ", " + row.damage);
        const Made made(row.make);
        const std::string input = made / row.input;
        ASSERT_EQ(0, run_program(QUORVANE " -q " + input).status);
        const std::vector<float> whole = decoded(leveled_name(input));
        damage(input, row.damage);
        EXPECT_EQ(1, run_program(QUORVANE " -q -f --strict " + input).status);
        const ProgramResult result = run_program(QUORVANE " -q -f --no-curves --json - " + input);
        ASSERT_EQ(0, result.status) << result.err;
        EXPECT_THAT(messages_of(result), HasSubstr("silence from "));
        const std::vector<float> after = decoded(leveled_name(input));
        EXPECT_EQ(whole.size(), after.size());
        EXPECT_GT(likeness_at_end(whole, after, 3 * 16000), 0.9);
        // Silence where sound is in the whole one.
        std::size_t silent = 0;
        for (std::size_t i = 0; i < std::min(whole.size(), after.size()); ++i) {
            silent += std::abs(after[i]) < 1e-4F && std::abs(whole[i]) > 1e-3F;
        }
        EXPECT_LT(8.0 * static_cast<double>(silent) / static_cast<double>(whole.size()),
                  row.most_lost_s);
    }
}

// Loss is what is lost of all that there was: below 5 % a note, else a failure without --salvage.
TEST(Damage, AboveAShareItFailsUnlessSalvaged) {
    struct Row {
        const char* make;  // x.EXT, cut off
        const char* input;
        int status;
        const char* words;
    };

    const Row rows[] = {
        {"head -c 245000 talk.wav >x.wav", "x.wav", 0, "0.35 s of 8.00 s (4.3 %) lost"},
        {"head -c 240000 talk.wav >x.wav", "x.wav", 1, "0.50 s of 8.00 s (6.3 %) lost"},
        {"sndfile-convert talk.wav y.flac; head -c 60000 y.flac >x.flac", "x.flac", 1,
         "the end is missing from"},
        {"ffmpeg -v error -i talk.wav y.mp3; head -c 9000 y.mp3 >x.mp3", "x.mp3", 1,
         "the end is missing from"},
        {"ffmpeg -v error -i talk.wav -movflags +faststart y.m4a; head -c 60000 y.m4a >x.m4a",
         "x.m4a", 1, "the end is missing from"},
        {"ffmpeg -v error -i talk.wav y.mka; head -c 30000 y.mka >x.mka", "x.mka", 1,
         "the end is missing from"},
        {"ffmpeg -v error -i talk.wav y.wma; head -c 60000 y.wma >x.wma", "x.wma", 1,
         "the end is missing from"},
        {"ffmpeg -v error -i talk.wav -c:a adpcm_ms y.wav; head -c 40000 y.wav >x.wav", "x.wav", 1,
         "the end is missing from"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.make);
        const Made made(row.make);
        const std::string words = QUORVANE " -q -f --no-curves --json - ";
        ProgramResult result = run_program(words + made / row.input);
        EXPECT_EQ(row.status, result.status) << result.err;
        EXPECT_THAT(messages_of(result), HasSubstr(row.words));
        EXPECT_EQ(row.status == 0, file_exists(leveled_name(made / row.input)));
        result = run_program(words + "--salvage " + made / row.input);
        EXPECT_EQ(0, result.status) << result.err;
        EXPECT_THAT(messages_of(result), HasSubstr(row.words));
        EXPECT_EQ(1, run_program(words + "--strict " + made / row.input).status);
    }
}

// Only the tag says which samples are heard: the edit list is renamed, which takes it away.
TEST(Gapless, ATagWithoutAnEditListGivesLengthAndPosition) {
    const Made made("ffmpeg -v error -i talk.wav x.m4a");
    const std::string edited = made / "x.m4a";
    std::string bytes = read_text(edited);
    const std::size_t at = bytes.find("edts");
    ASSERT_NE(std::string::npos, at);
    bytes.replace(at, 4, "free");
    const std::string tagged = made / "y.m4a";
    write_text(tagged, bytes);
    const std::string kName = "----:com.apple.iTunes:iTunSMPB";
    {
        // 8 s at 16 kHz are 128000 = 0x1F400 samples, 125 blocks, behind one of the encoder.
        TagLib::MP4::File file(tagged.c_str());
        file.tag()->setItem(kName,
                            TagLib::StringList(" 00000000 00000400 00000000 000000000001F400"));
        ASSERT_TRUE(file.save());
    }
    for (const std::string& input : {edited, tagged}) {
        ASSERT_EQ(0, run_program(QUORVANE " -q " + input).status);
    }
    EXPECT_EQ(decoded(leveled_name(edited)), decoded(leveled_name(tagged)));
    EXPECT_EQ(128000U, decoded(leveled_name(tagged)).size());
    TagLib::MP4::File file(leveled_name(tagged).c_str());
    EXPECT_THAT(file.tag()->item(kName).toStringList().toString().to8Bit(),
                HasSubstr(" 00000000 00000400 00000000 000000000001F400 "));
}

TEST(OddFiles, WhatOneLibraryCannotOpenGoesToTheOther) {
    struct Row {
        const char* make;  // x.EXT
        const char* input;
        const char* codec;
    };

    // An RF64 file with a text of three bytes, so that a pad byte follows, in front of its sound.
    const char* odd_chunk =
        "ffmpeg -v error -i talk.wav -rf64 always -bitexact y.wav; (head -c 12 y.wav; "
        "tail -c +13 y.wav | head -c 36; printf 'note\\3\\0\\0\\0abc\\0'; tail -c +49 y.wav) "
        ">x.wav";
    const Row rows[] = {
        {odd_chunk, "x.wav", "pcm_s16le"},
        {"ffmpeg -v error -i talk.wav -c:a flac x.ogg", "x.ogg", "flac"},
        {"(printf 'ID3\\3\\0\\0\\0\\0\\0\\050'; head -c 40 /dev/zero; cat talk.wav) >x.mp3",
         "x.mp3", "pcm_s16le"},
        {"ffmpeg -v error -i talk.wav -b:a 64k x.mp2", "x.mp2", "mp2"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.make);
        const Made made(row.make);
        const ProgramResult result = run_program(QUORVANE " -q " + made / row.input);
        EXPECT_EQ(0, result.status) << result.err;
        const std::string output = leveled_name(made / row.input);
        EXPECT_EQ(decoded(made / row.input).size(), decoded(output).size());
        EXPECT_THAT(run_program("ffprobe -v error -show_entries stream=codec_name " + output).out,
                    HasSubstr(row.codec));
    }
}

TEST(OddFiles, AnEmptyFileIsCalledEmpty) {
    for (const char* name : {"a.wav", "a.mp3", "a.mp4"}) {
        const TempDir dir;
        write_text(dir / name, "");
        const ProgramResult result = run_program(QUORVANE " -q " + dir / name);
        EXPECT_EQ(1, result.status);
        EXPECT_THAT(result.err, HasSubstr("is empty"));
    }
}

TEST(OddFiles, TheTimeOfDayIsInNoOutput) {
    const TempDir dir;
    for (const int container : {SF_FORMAT_RF64, SF_FORMAT_WAV, SF_FORMAT_CAF, SF_FORMAT_AIFF}) {
        const std::string input = dir / "talk.wav";
        write_sound(input, signals::speech(4, 16000), container | SF_FORMAT_FLOAT);
        ASSERT_EQ(0, run_program(QUORVANE " -q -f " + input).status);
        const std::string first = read_text(leveled_name(input));
        // The chunk counts seconds.
        ASSERT_EQ(0, run_program("sleep 1.1; " QUORVANE " -q -f " + input).status);
        EXPECT_TRUE(first == read_text(leveled_name(input))) << container;
    }
}

}  // namespace
