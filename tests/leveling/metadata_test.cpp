#include <gmock/gmock.h>
#include <sndfile.h>
#include <taglib/aifffile.h>
#include <taglib/apetag.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/privateframe.h>
#include <taglib/tpropertymap.h>
#include <taglib/wavfile.h>
#include <taglib/xiphcomment.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>

#include "Common/version.h"
#include "leveling/metadata/chunks.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::AllOf;
using testing::HasSubstr;

namespace {

constexpr int kSpeechRate = 16000;
constexpr const char* kXml = "<?xml version=\"1.0\"?><BWFXML><PROJECT>Tälk</PROJECT></BWFXML>";
constexpr int kPictureBytes = 300000;  // more than libsndfile's header buffer holds

/** A real picture; what follows its end mark is ignored. */
TagLib::ByteVector picture_data() {
    const TempDir dir;
    run_program("ffmpeg -v error -f lavfi -i color=red:s=8x8 -frames:v 1 " + dir / "p.png");
    const std::string png = read_text(dir / "p.png");
    TagLib::ByteVector data(png.data(), static_cast<unsigned>(png.size()));
    return data.resize(kPictureBytes);
}

std::string level(const TempDir& dir, const std::string& name, const std::string& options = "") {
    const std::size_t dot = name.rfind('.');
    const std::string output = dir / (name.substr(0, dot) + "-leveled" + name.substr(dot));
    const ProgramResult result = run_program(QUORVANE " " + options + " " + dir / name);
    EXPECT_EQ(result.status, 0) << result.err;
    const SF_INFO before = sound_info(dir / name);
    const SF_INFO after = sound_info(output);
    EXPECT_EQ(after.frames, before.frames);
    EXPECT_EQ(after.samplerate, before.samplerate);
    EXPECT_EQ(after.channels, before.channels);
    EXPECT_EQ(after.format, before.format);
    EXPECT_NE(read_text(dir / name), read_text(output)) << "it was leveled";
    // A reader that shares no code with ours finds nothing wrong.
    EXPECT_EQ(run_program("ffmpeg -v error -i " + output + " -map 0:a -f null -").err, "");
    return output;
}

std::string probe(const std::string& path) {
    return run_program("ffprobe -v error -show_entries format_tags:stream_tags -of flat " + path)
        .out;
}

std::size_t picture_bytes(const std::string& path) {
    return run_program("ffmpeg -v error -i " + path + " -map 0:v -c copy -f rawvideo -").out.size();
}

struct CloseSound {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

using Sound = std::unique_ptr<SNDFILE, CloseSound>;

Sound create(const std::string& path, int format) {
    SF_INFO info{0, kSpeechRate, 1, format, 0, 0};
    return Sound(sf_open(path.c_str(), SFM_WRITE, &info));
}

Sound open(const std::string& path) {
    SF_INFO info{};
    return Sound(sf_open(path.c_str(), SFM_READ, &info));
}

void write_talk(const Sound& file) {
    const Signal signal = signals::speech(4, kSpeechRate);
    sf_write_double(file.get(), signal.samples.data(), sf_count_t(signal.samples.size()));
}

void set_chunk(const Sound& file, const char* id, std::string content) {
    SF_CHUNK_INFO chunk{"", 4, static_cast<unsigned>(content.size()), &content[0]};
    memcpy(chunk.id, id, 4);
    EXPECT_EQ(sf_set_chunk(file.get(), &chunk), SF_ERR_NO_ERROR);
}

std::string get_chunk(const std::string& path, const char* id) {
    const std::string file = read_text(path);
    const std::size_t start = file.find(id);
    if (start == std::string::npos) {
        return "";
    }
    uint32_t size = 0;
    memcpy(&size, &file[start + 4], sizeof size);
    return file.substr(start + 8, size);
}

std::string le32(uint32_t value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

void set_cues(const Sound& file) {
    SF_CUES cues{};
    cues.cue_count = 2;
    for (int i = 0; i < 2; ++i) {
        SF_CUE_POINT& point = cues.cue_points[i];
        point.indx = i + 1;
        point.position = point.sample_offset = static_cast<unsigned>(i + 1) * 1000;
        memcpy(&point.fcc_chunk, "data", 4);
    }
    sf_command(file.get(), SFC_SET_CUE, &cues, sizeof cues);
}

void expect_cues(const Sound& file) {
    SF_CUES cues{};
    ASSERT_EQ(sf_command(file.get(), SFC_GET_CUE, &cues, sizeof cues), SF_TRUE);
    ASSERT_EQ(cues.cue_count, 2u);
    EXPECT_EQ(cues.cue_points[1].sample_offset, 2000u);
}

void write_wav_like(const std::string& path, int container) {
    const Sound file = create(path, container | SF_FORMAT_PCM_16);
    SF_BROADCAST_INFO bext{};
    strcpy(bext.description, "Episode 7");
    bext.time_reference_low = 12345;
    bext.version = 2;
    bext.loudness_value = -2740;
    bext.max_momentary_loudness = -2000;
    strcpy(bext.coding_history, "A=ANALOGUE,M=mono,T=a deck\r\n");
    bext.coding_history_size = 29;
    sf_command(file.get(), SFC_SET_BROADCAST_INFO, &bext, sizeof bext);
    SF_CART_INFO cart{};
    memcpy(cart.version, "0101", 4);
    strcpy(cart.title, "Cart title");
    sf_command(file.get(), SFC_SET_CART_INFO, &cart, sizeof cart);
    if (container == SF_FORMAT_WAV) {
        set_cues(file);
    }
    set_chunk(file, "iXML", kXml);
    set_chunk(file, "abcd", "odd");  // unknown, of odd length
    set_chunk(file, "LIST", "adtllabl" + le32(12) + le32(1) + std::string("Intro!\0\0", 8));
    write_talk(file);
}

void add_frames(TagLib::ID3v2::Tag& tag) {
    auto* picture = new TagLib::ID3v2::AttachedPictureFrame;
    picture->setMimeType("image/png");
    picture->setPicture(picture_data());
    tag.addFrame(picture);
    auto* own = new TagLib::ID3v2::PrivateFrame;
    own->setOwner("someone");
    own->setData("their bytes");
    tag.addFrame(own);
}

/** Strings are written after the samples here, behind the audio. */
void add_tags_behind(const std::string& path) {
    TagLib::RIFF::WAV::File file(path.c_str());
    file.InfoTag()->setTitle(TagLib::String("Tälk", TagLib::String::UTF8));
    file.ID3v2Tag()->setTitle("In the id3 chunk");
    add_frames(*file.ID3v2Tag());
    ASSERT_TRUE(file.save());
}

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

void add_picture(TagLib::File& file) {
    if (auto* mpeg = dynamic_cast<TagLib::MPEG::File*>(&file)) {
        return add_frames(*mpeg->ID3v2Tag());
    }
    auto* picture = new TagLib::FLAC::Picture;
    picture->setMimeType("image/png");
    picture->setType(TagLib::FLAC::Picture::FrontCover);
    picture->setData(picture_data());
    if (auto* flac = dynamic_cast<TagLib::FLAC::File*>(&file)) {
        flac->addPicture(picture);
    } else {
        dynamic_cast<TagLib::Ogg::XiphComment&>(*file.tag()).addPicture(picture);
    }
}

TEST(Metadata, TextsAndPicturesComeAlongPlayerGainsDoNot) {
    const std::pair<std::string, int> formats[] = {
        {"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24},
        {"a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS},
        {"a.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS},
        {"a.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III}};
    const TempDir dir;
    for (const auto& [name, format] : formats) {
        SCOPED_TRACE(name);
        write_sound(dir / name, signals::speech(4, 48000), format);
        {
            TagLib::FileRef file((dir / name).c_str());
            TagLib::PropertyMap properties;
            properties["TITLE"] = TagLib::String("Tälk", TagLib::String::UTF8);
            properties["ARTIST"] = TagLib::StringList("Someone").append("Another");
            properties["EPISODE NOTE"] = TagLib::StringList("own field");
            properties["REPLAYGAIN_TRACK_GAIN"] = TagLib::StringList("-3.00 dB");
            file.file()->setProperties(properties);
            add_picture(*file.file());
            ASSERT_TRUE(file.save());
        }
        const std::string output = level(dir, name);
        const TagLib::PropertyMap properties = TagLib::FileRef(output.c_str()).file()->properties();
        EXPECT_EQ(properties["ARTIST"].size(), 2u);
        EXPECT_EQ(properties["EPISODE NOTE"].toString(), "own field");
        EXPECT_FALSE(properties.contains("REPLAYGAIN_TRACK_GAIN"));
        EXPECT_EQ(picture_bytes(output), static_cast<std::size_t>(kPictureBytes));
        EXPECT_THAT(probe(output), HasSubstr("Tälk"));
        const bool has_frames = name == "a.mp3";
        EXPECT_EQ(probe(output).find("their bytes") != std::string::npos, has_frames);
    }
}

/** The ID3v2 tag at the start of a file, by the length in its header. */
std::string id3v2_of(const std::string& path) {
    const std::string file = read_text(path);
    std::size_t length = 0;
    for (std::size_t i = 6; i < 10; ++i) {
        length = length << 7 | static_cast<unsigned char>(file[i]);
    }
    return file.substr(0, 10 + length);
}

TEST(Metadata, Mp3TagsOfOtherProgramsComeAlongByteForByte) {
    const TempDir dir;
    write_sound(dir / "a.wav", signals::speech(4, 44100), kWav16);
    // Read as sizes of version 2.4, those whose bytes are all below 0x80 come out shorter.
    const std::pair<int, int> rows[] = {
        {3, 30720}, {3, 65796}, {3, 66000}, {3, 1500000}, {4, 65796}};
    for (const auto& [version, bytes] : rows) {
        SCOPED_TRACE(std::to_string(version) + ", " + std::to_string(bytes));
        TagLib::ByteVector picture = picture_data();
        picture.resize(static_cast<unsigned>(bytes));
        write_text(dir / "p.png", {picture.data(), picture.size()});
        const ProgramResult made = run_program(
            "cd " + dir.path() +
            " && ffmpeg -y -v error -i a.wav -b:a 64k -write_id3v1 1 "
            "-metadata title=Talk -metadata comment=$(printf %300s | tr ' ' x) -id3v2_version " +
            std::to_string(version) + " t.mp3 && kid3-cli -c 'set picture:p.png cover' t.mp3");
        ASSERT_EQ(made.status, 0) << made.err;
        {
            TagLib::MPEG::File file((dir / "t.mp3").c_str());
            file.APETag(true)->setArtist("Someone");
            file.save(TagLib::MPEG::File::APE, TagLib::File::StripNone, TagLib::ID3v2::v4,
                      TagLib::File::DoNotDuplicate);
        }
        const std::string output = level(dir, "t.mp3", "-f");
        EXPECT_EQ(id3v2_of(dir / "t.mp3"), id3v2_of(output));
        EXPECT_EQ(picture_bytes(output), static_cast<std::size_t>(bytes));
        const std::string before = read_text(dir / "t.mp3");
        const std::string tail = before.substr(before.find("APETAGEX"));
        EXPECT_GT(tail.size(), 128u + 64u);
        const std::string after = read_text(output);
        EXPECT_EQ(tail, after.substr(after.size() - tail.size()));
    }
}

TEST(Metadata, FlacBlocksOfOtherProgramsComeAlong) {
    const TempDir dir;
    write_sound(dir / "a.flac", signals::speech(8, 44100, 2), SF_FORMAT_FLAC | SF_FORMAT_PCM_16);
    write_text(dir / "a.cue",
               "FILE \"a.flac\" WAVE\n  TRACK 01 AUDIO\n    INDEX 01 00:00:00\n"
               "  TRACK 02 AUDIO\n    INDEX 01 00:02:00\n");
    ASSERT_EQ(0, run_program("cd " + dir.path() +
                             " && metaflac --import-cuesheet-from=a.cue --no-cued-seekpoints "
                             "--set-tag=Mixed=case a.flac")
                     .status);
    std::string file = read_text(dir / "a.flac");
    file.insert(4 + 4 + 34, std::string("\x02\0\0\x0Criffmy bytes", 16));
    write_text(dir / "a.flac", file);
    ASSERT_EQ(0, run_program("metaflac --add-seekpoint=1s " + dir / "a.flac").status);

    const std::string output = level(dir, "a.flac");
    const auto list = [](const std::string& types, const std::string& path) {
        return run_program("metaflac --list --block-type=" + types + " " + path).out;
    };
    const std::string kept = "CUESHEET,APPLICATION,PADDING";
    EXPECT_THAT(list(kept, output), HasSubstr("my bytes"));
    EXPECT_EQ(list(kept, dir / "a.flac"), list(kept, output));
    EXPECT_THAT(list("VORBIS_COMMENT", output), HasSubstr("Mixed=case"));
    // The other program finds the same places for the seek points.
    const std::string points = list("SEEKTABLE", output);
    EXPECT_THAT(points, HasSubstr("point 7: sample_number="));
    ASSERT_EQ(0, run_program("metaflac --remove --block-type=SEEKTABLE " + output).status);
    ASSERT_EQ(0, run_program("metaflac --add-seekpoint=1s " + output).status);
    EXPECT_THAT(list("SEEKTABLE", output), HasSubstr(points.substr(points.find("point 0"), 200)));
}

TEST(Metadata, EqualInputsGiveEqualBits) {
    const TempDir dir;
    for (const auto& [name, coding] :
         {std::pair{"a.ogg", SF_FORMAT_VORBIS}, std::pair{"a.opus", SF_FORMAT_OPUS}}) {
        write_sound(dir / name, signals::speech(4, 48000), SF_FORMAT_OGG | coding);
        const std::string first = read_text(level(dir, name));
        EXPECT_TRUE(first == read_text(level(dir, name, "-f"))) << name;
    }
}

TEST(Lossy, IsEncodedOnceAtTheInputsBitRate) {
    const TempDir dir;
    const Signal signal = signals::speech(20, 44100, 2);
    write_sound(dir / "a.wav", signal, kWav16);
    for (const char* command : {"-c:a libmp3lame -b:a 192k b.mp3", "-c:a libmp3lame -b:a 64k c.mp3",
                                "-c:a libvorbis -b:a 192k d.ogg", "-c:a libopus -b:a 96k e.opus"}) {
        SCOPED_TRACE(command);
        const std::string words = command;
        const std::string name = words.substr(words.rfind(' ') + 1);
        run_program("cd " + dir.path() + " && ffmpeg -v error -i a.wav " + words);
        const std::string output = level(dir, name);
        const auto before = static_cast<double>(read_text(dir / name).size());
        const auto after = static_cast<double>(read_text(output).size());
        EXPECT_GT(after, 0.9 * before);
        EXPECT_LT(after, 2.0 * before);
    }
}

}  // namespace
