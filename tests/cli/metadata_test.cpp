#include <gmock/gmock.h>
#include <sndfile.h>
#include <taglib/aifffile.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/fileref.h>
#include <taglib/flacfile.h>
#include <taglib/id3v2tag.h>
#include <taglib/mpegfile.h>
#include <taglib/opusfile.h>
#include <taglib/privateframe.h>
#include <taglib/textidentificationframe.h>
#include <taglib/tpropertymap.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>

#include <cstring>
#include <memory>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::HasSubstr;
using testing::Not;

namespace {

constexpr int kRate = 16000;
constexpr const char* kXml = "<?xml version=\"1.0\"?><BWFXML><PROJECT>Tälk</PROJECT></BWFXML>";
constexpr int kPictureBytes = 300000;  // more than libsndfile's header buffer holds

// A real picture; what follows its end mark is ignored.
TagLib::ByteVector picture_data() {
    const TempDir dir;
    run_program("ffmpeg -v error -f lavfi -i color=red:s=8x8 -frames:v 1 " + dir / "p.png");
    const std::string png = read_text(dir / "p.png");
    TagLib::ByteVector data(png.data(), unsigned(png.size()));
    return data.resize(kPictureBytes);
}

std::string level(const TempDir& dir, const std::string& name, const std::string& options = "") {
    const size_t dot = name.rfind('.');
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

struct CloseSound {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

using Sound = std::unique_ptr<SNDFILE, CloseSound>;

void set_chunk(const Sound& file, const char* id, std::string content) {
    SF_CHUNK_INFO chunk{};
    strncpy(chunk.id, id, sizeof chunk.id - 1);
    chunk.id_size = 4;
    chunk.datalen = unsigned(content.size());
    chunk.data = &content[0];
    EXPECT_EQ(sf_set_chunk(file.get(), &chunk), SF_ERR_NO_ERROR);
}

std::string get_chunk(const std::string& path, const char* id) {
    SF_INFO info{};
    const Sound file(sf_open(path.c_str(), SFM_READ, &info));
    SF_CHUNK_INFO chunk{};
    strncpy(chunk.id, id, sizeof chunk.id - 1);
    chunk.id_size = 4;
    SF_CHUNK_ITERATOR* found = sf_get_chunk_iterator(file.get(), &chunk);
    if (!found || sf_get_chunk_size(found, &chunk) != SF_ERR_NO_ERROR) return "";
    std::string content(chunk.datalen, '\0');
    chunk.data = &content[0];
    sf_get_chunk_data(found, &chunk);
    return content;
}

std::string le32(unsigned value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += char(value >> shift & 0xFF);
    return bytes;
}

SF_BROADCAST_INFO broadcast() {
    SF_BROADCAST_INFO info{};
    strcpy(info.description, "Episode 7");
    strcpy(info.originator, "Recorder");
    strcpy(info.origination_date, "2026-11-21");
    info.time_reference_low = 12345;
    info.version = 2;
    info.loudness_value = -2740;
    info.loudness_range = 1590;
    return info;
}

SF_CUES two_cues() {
    SF_CUES cues{};
    cues.cue_count = 2;
    for (int i = 0; i < 2; ++i) {
        cues.cue_points[i].indx = i + 1;
        cues.cue_points[i].position = unsigned(i + 1) * 1000;
        cues.cue_points[i].sample_offset = unsigned(i + 1) * 1000;
        memcpy(&cues.cue_points[i].fcc_chunk, "data", 4);
    }
    return cues;
}

void write_wav_like(const std::string& path, int container) {
    SF_INFO info{};
    info.samplerate = kRate;
    info.channels = 1;
    info.format = container | SF_FORMAT_PCM_16;
    const Sound file(sf_open(path.c_str(), SFM_WRITE, &info));
    SF_BROADCAST_INFO bext = broadcast();
    sf_command(file.get(), SFC_SET_BROADCAST_INFO, &bext, sizeof bext);
    SF_CART_INFO cart{};
    memcpy(cart.version, "0101", 4);
    strcpy(cart.title, "Cart title");
    sf_command(file.get(), SFC_SET_CART_INFO, &cart, sizeof cart);
    SF_CUES cues = two_cues();
    if (container == SF_FORMAT_WAV) sf_command(file.get(), SFC_SET_CUE, &cues, sizeof cues);
    set_chunk(file, "iXML", kXml);
    set_chunk(file, "abcd", "odd");  // unknown, of odd length
    set_chunk(file, "LIST", "adtllabl" + le32(12) + le32(1) + std::string("Intro!\0\0", 8));
    const Signal signal = signals::speech(4, kRate);
    sf_write_double(file.get(), signal.samples.data(), sf_count_t(signal.samples.size()));
}

// Strings are written after the samples here, behind the audio.
void add_tags_behind(const std::string& path) {
    TagLib::RIFF::WAV::File file(path.c_str());
    file.InfoTag()->setTitle(TagLib::String("Tälk", TagLib::String::UTF8));
    file.InfoTag()->setArtist("Someone");
    auto* picture = new TagLib::ID3v2::AttachedPictureFrame;
    picture->setMimeType("image/png");
    picture->setPicture(picture_data());
    file.ID3v2Tag()->addFrame(picture);
    file.ID3v2Tag()->setTitle("In the id3 chunk");
    ASSERT_TRUE(file.save());
}

class WavMetadata : public testing::TestWithParam<int> {};

TEST_P(WavMetadata, EveryChunkComesAlong) {
    const TempDir dir;
    write_wav_like(dir / "a.wav", GetParam());
    if (GetParam() == SF_FORMAT_WAV) add_tags_behind(dir / "a.wav");
    const std::string output = level(dir, "a.wav");

    EXPECT_THAT(get_chunk(output, "iXML"), testing::StartsWith(kXml));
    EXPECT_EQ(get_chunk(output, "abcd").substr(0, 3), "odd");
    EXPECT_THAT(get_chunk(output, "cart"), HasSubstr("Cart title"));
    EXPECT_THAT(get_chunk(output, "LIST"), HasSubstr("Intro!"));
    EXPECT_THAT(run_program("sndfile-info --broadcast " + output).out, HasSubstr("Episode 7"));
    EXPECT_THAT(run_program("sndfile-info --cart " + output).out, HasSubstr("Cart title"));
    EXPECT_THAT(probe(output), HasSubstr("Episode 7"));

    SF_INFO info{};
    const Sound file(sf_open(output.c_str(), SFM_READ, &info));
    SF_BROADCAST_INFO bext{};
    ASSERT_EQ(sf_command(file.get(), SFC_GET_BROADCAST_INFO, &bext, sizeof bext), SF_TRUE);
    EXPECT_EQ(bext.time_reference_low, 12345u);
    // The engine's target is -18 dB RMS: the old -27.4 LUFS no longer hold.
    EXPECT_NE(bext.loudness_value, -2740);
    EXPECT_NEAR(bext.loudness_value / 100.0, -18, 4);

    if (GetParam() != SF_FORMAT_WAV) return;
    SF_CUES cues{};
    ASSERT_EQ(sf_command(file.get(), SFC_GET_CUE, &cues, sizeof cues), SF_TRUE);
    ASSERT_EQ(cues.cue_count, 2u);
    EXPECT_EQ(cues.cue_points[1].sample_offset, 2000u);
    TagLib::RIFF::WAV::File tags(output.c_str());
    EXPECT_EQ(tags.InfoTag()->title().to8Bit(true), "Tälk");
    EXPECT_EQ(tags.ID3v2Tag()->title(), "In the id3 chunk");
    const auto pictures = tags.ID3v2Tag()->frameList("APIC");
    ASSERT_EQ(pictures.size(), 1u);
    EXPECT_GE(pictures.front()->size(), unsigned(kPictureBytes));
    EXPECT_THAT(probe(output), HasSubstr("artist=\"Someone\""));
}

INSTANTIATE_TEST_SUITE_P(Containers,
                         WavMetadata,
                         testing::Values(SF_FORMAT_WAV, SF_FORMAT_RF64),
                         [](const auto& param) {
                             return param.param == SF_FORMAT_WAV ? "Wav" : "Rf64";
                         });

TEST(Metadata, WithoutMeasuringTheBroadcastLoudnessIsNotSet) {
    const TempDir dir;
    write_wav_like(dir / "a.wav", SF_FORMAT_WAV);
    const std::string bext = get_chunk(level(dir, "a.wav", "--no-measure"), "bext");
    ASSERT_GT(bext.size(), 422u);
    EXPECT_EQ(bext.substr(412, 4), "\xFF\x7F\xFF\x7F");
}

TEST(Metadata, Wave64ChunksComeAlong) {
    const TempDir dir;
    write_sound(dir / "a.w64", signals::speech(4, kRate), SF_FORMAT_W64 | SF_FORMAT_PCM_16);
    // A chunk is a 16-byte name, a 64-bit size that counts these 24 bytes, and fills 8 bytes.
    const std::string chunk =
        "bext" + std::string(12, '\x11') + le32(24 + 5) + le32(0) + "words" + std::string(3, '\0');
    std::string file = read_text(dir / "a.w64");
    file.insert(file.find("data\xF3"), chunk);
    file.replace(16, 8, le32(unsigned(file.size())) + le32(0));
    write_text(dir / "a.w64", file);
    const std::string leveled = read_text(level(dir, "a.w64"));
    EXPECT_EQ(leveled.substr(leveled.find("data\xF3") - chunk.size(), chunk.size()), chunk);
    EXPECT_EQ(leveled.substr(16, 8), le32(unsigned(leveled.size())) + le32(0));
}

TEST(Metadata, AiffMarkersAndTextsComeAlong) {
    const TempDir dir;
    {
        SF_INFO info{};
        info.samplerate = kRate;
        info.channels = 1;
        info.format = SF_FORMAT_AIFF | SF_FORMAT_PCM_24;
        const Sound file(sf_open((dir / "a.aiff").c_str(), SFM_WRITE, &info));
        sf_set_string(file.get(), SF_STR_TITLE, "The name");
        sf_set_string(file.get(), SF_STR_ARTIST, "The author");
        sf_set_string(file.get(), SF_STR_COMMENT, "An annotation");
        SF_CUES cues = two_cues();
        sf_command(file.get(), SFC_SET_CUE, &cues, sizeof cues);
        const Signal signal = signals::speech(4, kRate);
        sf_write_double(file.get(), signal.samples.data(), sf_count_t(signal.samples.size()));
    }
    {
        TagLib::RIFF::AIFF::File file((dir / "a.aiff").c_str());
        file.tag()->setAlbum("The album");
        ASSERT_TRUE(file.save());
    }
    const std::string output = level(dir, "a.aiff");
    SF_INFO info{};
    const Sound file(sf_open(output.c_str(), SFM_READ, &info));
    EXPECT_STREQ(sf_get_string(file.get(), SF_STR_TITLE), "The name");
    EXPECT_STREQ(sf_get_string(file.get(), SF_STR_ARTIST), "The author");
    EXPECT_STREQ(sf_get_string(file.get(), SF_STR_COMMENT), "An annotation");
    SF_CUES cues{};
    ASSERT_EQ(sf_command(file.get(), SFC_GET_CUE, &cues, sizeof cues), SF_TRUE);
    EXPECT_EQ(cues.cue_count, 2u);
    EXPECT_EQ(cues.cue_points[1].sample_offset, 2000u);
    EXPECT_EQ(TagLib::RIFF::AIFF::File(output.c_str()).tag()->album(), "The album");
    EXPECT_THAT(probe(output), HasSubstr("The author"));
}

TEST(Metadata, CafTextsComeAlong) {
    const TempDir dir;
    {
        SF_INFO info{};
        info.samplerate = kRate;
        info.channels = 1;
        info.format = SF_FORMAT_CAF | SF_FORMAT_PCM_16;
        const Sound file(sf_open((dir / "a.caf").c_str(), SFM_WRITE, &info));
        sf_set_string(file.get(), SF_STR_TITLE, "The name");
        const Signal signal = signals::speech(4, kRate);
        sf_write_double(file.get(), signal.samples.data(), sf_count_t(signal.samples.size()));
    }
    const std::string output = level(dir, "a.caf");
    SF_INFO info{};
    const Sound file(sf_open(output.c_str(), SFM_READ, &info));
    EXPECT_STREQ(sf_get_string(file.get(), SF_STR_TITLE), "The name");
}

struct TagRow {
    const char* name;
    int format;
    int rate;
};

void PrintTo(const TagRow& row, std::ostream* out) {
    *out << row.name;
}

class Tags : public testing::TestWithParam<TagRow> {};

TagLib::FLAC::Picture* new_picture() {
    auto* picture = new TagLib::FLAC::Picture;
    picture->setMimeType("image/png");
    picture->setType(TagLib::FLAC::Picture::FrontCover);
    picture->setData(picture_data());
    return picture;
}

void add_picture(const std::string& path, int format) {
    if ((format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC) {
        TagLib::FLAC::File file(path.c_str());
        file.addPicture(new_picture());
        file.save();
    } else if ((format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
        TagLib::MPEG::File file(path.c_str());
        auto* picture = new TagLib::ID3v2::AttachedPictureFrame;
        picture->setPicture(picture_data());
        file.ID3v2Tag(true)->addFrame(picture);
        auto* own = new TagLib::ID3v2::PrivateFrame;
        own->setOwner("someone");
        own->setData("their bytes");
        file.ID3v2Tag()->addFrame(own);
        file.save();
    } else if ((format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS) {
        TagLib::Ogg::Opus::File file(path.c_str());
        file.tag()->addPicture(new_picture());
        file.save();
    } else {
        TagLib::Ogg::Vorbis::File file(path.c_str());
        file.tag()->addPicture(new_picture());
        file.save();
    }
}

size_t picture_bytes(const std::string& path, int format) {
    if ((format & SF_FORMAT_TYPEMASK) == SF_FORMAT_FLAC)
        return TagLib::FLAC::File(path.c_str()).pictureList().front()->data().size();
    if ((format & SF_FORMAT_TYPEMASK) == SF_FORMAT_MPEG) {
        TagLib::MPEG::File file(path.c_str());
        EXPECT_EQ(file.ID3v2Tag()->frameList("PRIV").size(), 1u);
        return dynamic_cast<TagLib::ID3v2::AttachedPictureFrame*>(
                   file.ID3v2Tag()->frameList("APIC").front())
            ->picture()
            .size();
    }
    if ((format & SF_FORMAT_SUBMASK) == SF_FORMAT_OPUS)
        return TagLib::Ogg::Opus::File(path.c_str()).tag()->pictureList().front()->data().size();
    return TagLib::Ogg::Vorbis::File(path.c_str()).tag()->pictureList().front()->data().size();
}

TEST_P(Tags, TextsAndPicturesComeAlongPlayerGainsDoNot) {
    const TempDir dir;
    const std::string name = GetParam().name;
    const std::string input = dir / name;
    write_sound(input, signals::speech(4, GetParam().rate), GetParam().format);
    {
        TagLib::FileRef file(input.c_str());
        file.tag()->setTitle(TagLib::String("Tälk", TagLib::String::UTF8));
        TagLib::PropertyMap properties = file.file()->properties();
        properties["ARTIST"] = TagLib::StringList("Someone").append("Another");
        properties["EPISODE NOTE"] = TagLib::StringList("own field");
        properties["REPLAYGAIN_TRACK_GAIN"] = TagLib::StringList("-3.00 dB");
        file.file()->setProperties(properties);
        ASSERT_TRUE(file.save());
    }
    add_picture(input, GetParam().format);
    const std::string output = level(dir, name);
    const TagLib::FileRef file(output.c_str());
    EXPECT_EQ(file.tag()->title().to8Bit(true), "Tälk");
    const TagLib::PropertyMap properties = file.file()->properties();
    EXPECT_EQ(properties["ARTIST"].size(), 2u);
    EXPECT_EQ(properties["EPISODE NOTE"].toString(), "own field");
    EXPECT_FALSE(properties.contains("REPLAYGAIN_TRACK_GAIN"));
    EXPECT_EQ(picture_bytes(output, GetParam().format), size_t(kPictureBytes));
    EXPECT_THAT(probe(output), HasSubstr("Tälk"));
}

INSTANTIATE_TEST_SUITE_P(Formats,
                         Tags,
                         testing::Values(TagRow{"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24, 44100},
                                         TagRow{"a.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 44100},
                                         TagRow{"a.opus", SF_FORMAT_OGG | SF_FORMAT_OPUS, 48000},
                                         TagRow{"a.mp3", SF_FORMAT_MPEG | SF_FORMAT_MPEG_LAYER_III,
                                                44100}),
                         [](const auto& param) { return std::string(param.param.name).substr(2); });

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
        const auto before = double(read_text(dir / name).size());
        const auto after = double(read_text(output).size());
        EXPECT_GT(after, 0.9 * before);
        EXPECT_LT(after, 2.0 * before);
    }
}

}  // namespace
