#pragma once

#include <gmock/gmock.h>
#include <sndfile.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/id3v2tag.h>
#include <taglib/privateframe.h>
#include <taglib/wavfile.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

/* What the tests of chunks and of tags share: files with metadata, and what became of it. */

namespace metadata_files {

constexpr int kSpeechRate = 16000;
constexpr const char* kXml = "<?xml version=\"1.0\"?><BWFXML><PROJECT>Tälk</PROJECT></BWFXML>";
constexpr int kPictureBytes = 300000;  // more than libsndfile's header buffer holds

/** A real picture; what follows its end mark is ignored. */
inline TagLib::ByteVector picture_data() {
    const TempDir dir;
    run_program("ffmpeg -v error -f lavfi -i color=red:s=8x8 -frames:v 1 " + dir / "p.png");
    const std::string png = read_text(dir / "p.png");
    TagLib::ByteVector data(png.data(), static_cast<unsigned>(png.size()));
    return data.resize(kPictureBytes);
}

inline std::string level(const TempDir& dir,
                         const std::string& name,
                         const std::string& options = "") {
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

inline std::string probe(const std::string& path) {
    return run_program("ffprobe -v error -show_entries format_tags:stream_tags -of flat " + path)
        .out;
}

inline std::size_t picture_bytes(const std::string& path) {
    return run_program("ffmpeg -v error -i " + path + " -map 0:v -c copy -f rawvideo -").out.size();
}

struct CloseSound {
    void operator()(SNDFILE* file) const { sf_close(file); }
};

using Sound = std::unique_ptr<SNDFILE, CloseSound>;

inline Sound create(const std::string& path, int format) {
    SF_INFO info{0, kSpeechRate, 1, format, 0, 0};
    return Sound(sf_open(path.c_str(), SFM_WRITE, &info));
}

inline Sound open(const std::string& path) {
    SF_INFO info{};
    return Sound(sf_open(path.c_str(), SFM_READ, &info));
}

inline void write_talk(const Sound& file) {
    const Signal signal = signals::speech(4, kSpeechRate);
    sf_write_double(file.get(), signal.samples.data(), sf_count_t(signal.samples.size()));
}

inline void set_chunk(const Sound& file, const char* id, std::string content) {
    SF_CHUNK_INFO chunk{"", 4, static_cast<unsigned>(content.size()), &content[0]};
    memcpy(chunk.id, id, 4);
    EXPECT_EQ(sf_set_chunk(file.get(), &chunk), SF_ERR_NO_ERROR);
}

inline std::string get_chunk(const std::string& path, const char* id) {
    const std::string file = read_text(path);
    const std::size_t start = file.find(id);
    if (start == std::string::npos) {
        return "";
    }
    uint32_t size = 0;
    memcpy(&size, &file[start + 4], sizeof size);
    return file.substr(start + 8, size);
}

inline std::string le32(uint32_t value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

inline void set_cues(const Sound& file) {
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

inline void expect_cues(const Sound& file) {
    SF_CUES cues{};
    ASSERT_EQ(sf_command(file.get(), SFC_GET_CUE, &cues, sizeof cues), SF_TRUE);
    ASSERT_EQ(cues.cue_count, 2u);
    EXPECT_EQ(cues.cue_points[1].sample_offset, 2000u);
}

inline void write_wav_like(const std::string& path, int container) {
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

inline void add_frames(TagLib::ID3v2::Tag& tag) {
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
inline void add_tags_behind(const std::string& path) {
    TagLib::RIFF::WAV::File file(path.c_str());
    file.InfoTag()->setTitle(TagLib::String("Tälk", TagLib::String::UTF8));
    file.ID3v2Tag()->setTitle("In the id3 chunk");
    add_frames(*file.ID3v2Tag());
    ASSERT_TRUE(file.save());
}

}  // namespace metadata_files
