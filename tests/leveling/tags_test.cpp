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
#include <memory>

#include "tests/leveling/metadata_files.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::HasSubstr;
using namespace metadata_files;

namespace {

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
