#include <gmock/gmock.h>
#include <sndfile.h>
#include <taglib/aifffile.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Common/version.h"
#include "leveling/metadata/chunks.h"
#include "tests/leveling/metadata_files.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::AllOf;
using testing::HasSubstr;
using namespace metadata_files;

namespace {

TEST(Metadata, EveryWavChunkComesAlong) {
    for (const int container : {SF_FORMAT_WAV, SF_FORMAT_RF64}) {
        SCOPED_TRACE(container);
        const TempDir dir;
        write_wav_like(dir / "a.wav", container);
        if (container == SF_FORMAT_WAV) {
            add_tags_behind(dir / "a.wav");
        }
        const std::string output = level(dir, "a.wav");

        EXPECT_THAT(get_chunk(output, "iXML"), testing::StartsWith(kXml));
        EXPECT_EQ(get_chunk(output, "abcd").substr(0, 3), "odd");
        EXPECT_THAT(get_chunk(output, "LIST"), HasSubstr("Intro!"));
        EXPECT_THAT(probe(output), HasSubstr("Episode 7"));
        EXPECT_THAT(run_program("sndfile-info --cart " + output).out, HasSubstr("Cart title"));

        const Sound file = open(output);
        SF_BROADCAST_INFO bext{};
        ASSERT_EQ(sf_command(file.get(), SFC_GET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
        EXPECT_EQ(bext.time_reference_low, 12345u);
        // The engine's target is -18 dB RMS: the old -27.4 LUFS no longer hold.
        EXPECT_NE(bext.loudness_value, -2740);
        EXPECT_NEAR(bext.loudness_value / 100.0, -18, 4);
        // The loudest 0.4 s lie above the whole and, in speech, a few LU below the peak.
        EXPECT_GT(bext.max_momentary_loudness, bext.loudness_value);
        EXPECT_LT(bext.max_momentary_loudness, bext.loudness_value + 900);
        EXPECT_THAT(get_chunk(output, "bext"),
                    AllOf(HasSubstr("A=ANALOGUE,M=mono,T=a deck\r\n"),
                          HasSubstr(std::string("\r\nA=PCM,F=16000,W=16,M=mono,T=quorvane ") +
                                    kVersion + ", leveled")));

        if (container != SF_FORMAT_WAV) {
            continue;
        }
        expect_cues(file);
        TagLib::RIFF::WAV::File tags(output.c_str());
        EXPECT_EQ(tags.InfoTag()->title().to8Bit(true), "Tälk");
        EXPECT_EQ(tags.ID3v2Tag()->title(), "In the id3 chunk");
        EXPECT_EQ(picture_bytes(output), static_cast<std::size_t>(kPictureBytes));
        EXPECT_THAT(probe(output), HasSubstr("their bytes"));
    }
}

TEST(Metadata, WithoutMeasuringTheBroadcastLoudnessIsNotSet) {
    const TempDir dir;
    write_wav_like(dir / "a.wav", SF_FORMAT_WAV);
    const std::string bext = get_chunk(level(dir, "a.wav", "--no-measure"), "bext");
    ASSERT_GT(bext.size(), 422u);
    EXPECT_EQ(bext.substr(412, 4), "\xFF\x7F\xFF\x7F");
}

std::string be32(uint32_t value) {
    std::string bytes = le32(value);
    std::reverse(bytes.begin(), bytes.end());
    return bytes;
}

/** Chunks of RIFF and of AIFF, padded to an even size. */
std::string riff_chunk(const std::string& id, const std::string& content) {
    return id + le32(static_cast<unsigned>(content.size())) + content +
           std::string(content.size() % 2, '\0');
}

std::string aiff_chunk(const std::string& id, const std::string& content) {
    return id + be32(static_cast<unsigned>(content.size())) + content +
           std::string(content.size() % 2, '\0');
}

/** Some seconds of sound with chunks put in front of the audio, in WAV and AIFF, and at the end. */
void write_with_chunks(const std::string& path,
                       int format,
                       const std::string& front,
                       const std::string& end) {
    {
        const Sound file = create(path, format);
        write_talk(file);
        const short sample = 77;
        sf_write_short(file.get(), &sample, 1);  // an odd number of them
    }
    std::string text = read_text(path);
    if (!front.empty() || !end.empty()) {
        const bool aiff = (format & SF_FORMAT_TYPEMASK) == SF_FORMAT_AIFF;
        text.insert(text.find(aiff ? "SSND" : "data"), front);
        text += end;
        const auto size = static_cast<unsigned>(text.size() - 8);
        text.replace(4, 4, aiff ? be32(size) : le32(size));
    }
    write_text(path, text);
}

std::string broadcast_chunk(char version, const std::string& history = "") {
    std::string content(602, '\0');
    content[346] = version;
    return riff_chunk("bext", content + history);
}

TEST(Metadata, AResultMadeWhereTheAudioStandsIsTheOneThatIsPutTogether) {
    const std::string odd = riff_chunk("iXML", "<a/>x");
    const std::string notes = riff_chunk("LIST", "INFO" + riff_chunk("INAM", "Talk"));

    struct Case {
        const char* name;
        int format;
        std::string front, end;
    };

    const Case cases[] = {
        {"plain.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, "", ""},
        {"behind.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8, "", notes + odd},
        {"front.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_24, notes + odd + broadcast_chunk(1), ""},
        {"both.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, odd + riff_chunk("JUNK", "xyz"), notes},
        {"end.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16, notes, broadcast_chunk(0)},
        {"both.aiff", SF_FORMAT_AIFF | SF_FORMAT_PCM_24, aiff_chunk("NAME", "Talk."),
         aiff_chunk("ANNO", "Odd") + aiff_chunk("AUTH", "Me")},
        {"plain.rf64", SF_FORMAT_RF64 | SF_FORMAT_PCM_16, "", ""},
        {"plain.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16, "", ""},
        {"plain.caf", SF_FORMAT_CAF | SF_FORMAT_PCM_16, "", ""}};
    const TempDir dir;
    const auto no_loudness = []() -> const quorvane::Loudness* { return nullptr; };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        const std::string input = dir / one.name;
        const std::string audio = dir / "audio";
        write_with_chunks(input, one.format, one.front, one.end);
        write_with_chunks(audio, one.format, "", "");
        ASSERT_TRUE(quorvane::copy_chunks(input, audio, dir / "together", no_loudness));
        const auto room = quorvane::room_for_chunks(input);
        ASSERT_TRUE(room);
        EXPECT_EQ(*room > 0, !one.front.empty());
        const std::string placed = dir / "placed";
        write_text(placed, std::string(*room, 'r') + read_text(audio));
        EXPECT_TRUE(quorvane::add_chunks(input, placed, *room));
        EXPECT_TRUE(read_text(placed) == read_text(dir / "together"));
        if (one.front.empty()) {
            continue;
        }
        // What the input has grown to meanwhile is not what room was left for.
        write_with_chunks(input, one.format, one.front + one.front, one.end);
        const std::string untouched = std::string(*room, 'r') + read_text(audio);
        write_text(placed, untouched);
        EXPECT_FALSE(quorvane::add_chunks(input, placed, *room));
        EXPECT_TRUE(read_text(placed) == untouched);
    }
    // Its loudness is known when the audio has been measured.
    write_with_chunks(dir / "loud.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, "", broadcast_chunk(2));
    EXPECT_FALSE(quorvane::room_for_chunks(dir / "loud.wav"));
    write_with_chunks(dir / "a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, "", "");
    EXPECT_FALSE(quorvane::room_for_chunks(dir / "a.flac"));
}

// The coding history tells another depth than the input's, in more letters than room was left for.
TEST(Metadata, AnotherDepthIsToldThoughItTakesMoreRoom) {
    const TempDir dir;
    // Of odd and even length, since a chunk of odd size is filled up.
    for (const std::string history : {"A=ANALOGUE\r\n", "A=ANALOGS\r\n"}) {
        write_with_chunks(dir / "a.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_U8,
                          broadcast_chunk(1, history), "");
        ASSERT_EQ(run_program(QUORVANE " --force --bit-depth 16 " + dir / "a.wav").status, 0);
        const std::string output = dir / "a-leveled.wav";
        EXPECT_EQ(sound_info(output).format, SF_FORMAT_WAV | SF_FORMAT_PCM_16);
        EXPECT_EQ(sound_info(output).frames, sound_info(dir / "a.wav").frames);
        EXPECT_THAT(get_chunk(output, "bext"), HasSubstr(history + "A=PCM,F=16000,W=16,M=mono"));
    }
}

TEST(Metadata, Wave64ChunksComeAlong) {
    const TempDir dir;
    write_sound(dir / "a.w64", signals::speech(4, kSpeechRate), SF_FORMAT_W64 | SF_FORMAT_PCM_16);
    // A chunk is a 16-byte name, a 64-bit size that counts these 24 bytes, and fills 8 bytes.
    const std::string chunk =
        "bext" + std::string(12, '\x11') + le32(24 + 5) + le32(0) + "words" + std::string(3, '\0');
    std::string file = read_text(dir / "a.w64");
    file.insert(file.find("data\xF3"), chunk);
    file.replace(16, 8, le32(static_cast<unsigned>(file.size())) + le32(0));
    write_text(dir / "a.w64", file);
    const std::string leveled = read_text(level(dir, "a.w64"));
    EXPECT_EQ(leveled.substr(leveled.find("data\xF3") - chunk.size(), chunk.size()), chunk);
    EXPECT_EQ(leveled.substr(16, 8), le32(static_cast<unsigned>(leveled.size())) + le32(0));
}

TEST(Metadata, AiffAndCafTextsAndMarkersComeAlong) {
    const TempDir dir;
    const std::pair<int, const char*> texts[] = {{SF_STR_TITLE, "The name"},
                                                 {SF_STR_ARTIST, "The author"},
                                                 {SF_STR_COMMENT, "An annotation"}};
    for (const std::string name : {"a.aiff", "a.caf"}) {
        SCOPED_TRACE(name);
        const bool aiff = name == "a.aiff";
        {
            const Sound file =
                create(dir / name, (aiff ? SF_FORMAT_AIFF : SF_FORMAT_CAF) | SF_FORMAT_PCM_24);
            for (const auto& [kind, text] : texts) {
                sf_set_string(file.get(), kind, text);
            }
            set_cues(file);
            write_talk(file);
        }
        if (aiff) {
            TagLib::RIFF::AIFF::File file((dir / name).c_str());
            file.tag()->setAlbum("The album");
            ASSERT_TRUE(file.save());
        }
        const std::string output = level(dir, name);
        const Sound file = open(output);
        for (const auto& [kind, text] : texts) {
            EXPECT_STREQ(sf_get_string(file.get(), kind), text);
        }
        if (!aiff) {
            continue;
        }
        expect_cues(file);
        EXPECT_EQ(TagLib::RIFF::AIFF::File(output.c_str()).tag()->album(), "The album");
        EXPECT_THAT(probe(output), HasSubstr("The author"));
    }
}

}  // namespace
