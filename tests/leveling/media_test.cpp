#include <gmock/gmock.h>
#include <taglib/mp4file.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#ifdef __linux__
#include <sys/inotify.h>
#include <unistd.h>
#endif

#include "tests/leveling/media_files.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::HasSubstr;

/*
 * The program runs over media files that ffmpeg made of a real recording and a test picture; ffmpeg
 * and ffprobe say what became of them. With QUORVANE_MEDIA_TABLE in the environment the table test
 * prints what it finds as rows of Markdown.
 */

using namespace media_files;

namespace {

struct Row {
    const char* name;
    const char* options;
    double frame_ms;  // of the codec
};

constexpr const char* kVideo = "-map 0:v -map 1:a ";
constexpr const char* kSound = "-map 1:a ";

}  // namespace

class Containers : public testing::Test {
  protected:
    void compare(const Row& row, const char* streams) {
        const std::string input = parts_.make(row.name, std::string(streams) + row.options);
        const std::string output = level(input);
        const std::vector<float> heard_before = heard(input);
        const std::vector<float> heard_after = heard(output);
        const double delay = delay_ms(heard_before, heard_after);
        const double before = static_cast<double>(heard_before.size()) / kRate;
        const double after = static_cast<double>(heard_after.size()) / kRate;
        EXPECT_LT(std::abs(delay), 1.0);
        EXPECT_LE(std::abs(after - before) * 1000, row.frame_ms);
        EXPECT_EQ("", changed_facts(input, output));
        const std::string hashes = copied_hashes(input);
        EXPECT_EQ(hashes, copied_hashes(output));
        EXPECT_NE(read_text(input), read_text(output));
        if (std::getenv("QUORVANE_MEDIA_TABLE")) {
            printf("| %s | %s | %s | %s | %+.2f | %.3f | %.3f | %s |\n", row.name,
                   codec_and_rate(input).c_str(), codec_and_rate(output).c_str(),
                   hashes.empty()                    ? "no other stream"
                   : hashes == copied_hashes(output) ? "equal"
                                                     : "DIFFER",
                   delay, before, after, changed_facts(input, output).empty() ? "equal" : "DIFFER");
        }
    }

    const Parts parts_;
};

// Every container with every sort of codec: delay in the container, in the codec, or nowhere.
TEST_F(Containers, KeepEverythingButTheLoudness) {
    for (const Row& row : {Row{"aac.mp4", "-c:a aac -b:a 96k", 22},
                           {"fast.mp4", "-c:a aac -movflags +faststart", 22},
                           {"fragmented.mp4", "-c:a aac -movflags +frag_keyframe+empty_moov", 22},
                           {"mp3.mp4", "-c:a libmp3lame -b:a 128k", 24},
                           {"opus.mp4", "-c:a libopus -b:a 64k", 20},
                           {"alac.mov", "-c:a alac -sample_fmt s32p -timecode 01:02:03:04", 0},
                           {"pcm.mov", "-c:a pcm_s24le -metadata:s:v rotate=90", 0},
                           {"aac.3gp", "-f 3gp -c:a aac", 22},
                           {"aac.mkv",
                            "-map 3 -c:a aac -c:s srt -metadata:s:a:0 language=deu "
                            "-metadata:s:s:0 language=fra",
                            22},
                           {"flac.mkv", "-c:a flac -sample_fmt s32 -color_primaries bt709", 0},
                           {"mp3.mkv", "-c:a libmp3lame -output_ts_offset 5", 24},
                           {"opus.mkv", "-c:a libopus -b:a 48k", 20},
                           {"ac3.avi", "-c:a ac3 -b:a 192k", 32},
                           {"pcm.avi", "-c:a pcm_s16le", 0}}) {
        SCOPED_TRACE(row.name);
        compare(row, kVideo);
    }
    compare({"vorbis.webm", "-c:v libvpx -deadline realtime -c:a libvorbis", 43}, kVideo);
    compare({"wma.wmv", "-c:v wmv2 -c:a wmav2 -b:a 96k", 43}, kVideo);
    for (const Row& row : {Row{"cover.m4a", "-map 4 -c:a aac -disposition:v attached_pic", 22},
                           {"book.m4b", "-f ipod -c:a alac", 0},
                           {"opus.mka", "-c:a libopus", 20},
                           {"wma.wma", "-c:a wmav2 -b:a 96k", 43},
                           {"aac.aac", "-map_chapters -1 -c:a aac", 22},
                           {"ac3.ac3", "-map_chapters -1 -c:a ac3", 32},
                           {"pack.wv", "-map_chapters -1 -c:a wavpack", 0},
                           {"true.tta", "-map_chapters -1 -c:a tta", 0}}) {
        SCOPED_TRACE(row.name);
        compare(row, kSound);
    }
}

TEST_F(Containers, KeepLateStartsAndGaps) {
    for (const std::string name : {"mp4", "mkv"}) {
        SCOPED_TRACE(name);
        const std::string input = parts_.make("in." + name, "-map 0:v -map 1:a -c:a aac");
        const std::string late = parts_ / ("late." + name);
        run("ffmpeg -v error -i " + input + " -itsoffset 1.5 -i " + input +
            " -map 0:v -map 1:a -c copy " + late);
        EXPECT_LT(std::abs(delay_ms(heard(late), heard(level(late)))), 1.0);

        // Packets 100 to 150 are missing: more than a second of nothing.
        const std::string gap = parts_ / ("gap." + name);
        run("ffmpeg -v error -i " + input +
            " -map 0:v -map 0:a -c copy -bsf:a 'noise=drop=between(n\\,100\\,150)' " + gap);
        EXPECT_LT(std::abs(delay_ms(heard(gap), heard(level(gap)))), 1.0);
        const std::string packets =
            "ffprobe -v error -select_streams a -show_entries "
            "packet=pts -of csv=p=0 ";
        EXPECT_EQ(run(packets + gap + " | wc -l"), run(packets + leveled_name(gap) + " | wc -l"));
    }
}

TEST_F(Containers, KeepTheLayoutOfMp4) {
    const auto boxes = [](const std::string& path) {
        const std::string bytes = read_text(path);
        return std::vector<bool>{bytes.find("moov") < bytes.find("mdat"),
                                 bytes.find("moof") != std::string::npos};
    };
    for (const char* flags : {"", "-movflags +faststart", "-movflags +frag_keyframe+empty_moov"}) {
        SCOPED_TRACE(flags);
        const std::string input =
            parts_.make("in.mp4", std::string("-map 0:v -map 1:a -c:a aac ") + flags);
        EXPECT_EQ(boxes(input), boxes(level(input)));
    }
}

TEST_F(Containers, LevelTheChosenSound) {
    const std::string input =
        parts_.make("two.mkv",
                    "-map 0:v -map 1:a -map 1:a -map 4 -c:a flac -disposition:a:0 0 "
                    "-disposition:a:1 default");
    const auto hashes = [](const std::string& path) {
        std::vector<std::string> lines;
        std::istringstream text(
            run("ffmpeg -v error -i " + path + " -map 0:a -c copy -f streamhash -"));
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    };
    const auto old = hashes(input);
    ASSERT_EQ(2U, old.size());

    struct Choice {
        const char* options;
        bool first;
        bool second;
    };

    for (const Choice& choice : {Choice{"", false, true},
                                 {"--audio-stream 1", true, false},
                                 {"--audio-stream all", true, true}}) {
        SCOPED_TRACE(choice.options);
        const auto now = hashes(level(input, choice.options));
        EXPECT_EQ(choice.first, now[0] != old[0]);
        EXPECT_EQ(choice.second, now[1] != old[1]);
    }
    EXPECT_THAT(refusal(parts_.make("one.mkv", "-map 1:a -c:a flac"), "--audio-stream 3"),
                HasSubstr("has no audio stream 3: it has 1"));
}

TEST_F(Containers, GiveTheSameBytesTwiceAndGoByContent) {
    const std::string input = parts_.make("in.mkv", "-map 0:v -map 1:a -c:a libopus");
    const std::string first = read_text(level(input));
    EXPECT_EQ(first, read_text(level(input)));
    const std::string disguised = parts_ / "in.dat";
    write_text(disguised, read_text(input));
    EXPECT_EQ(first, read_text(level(disguised)));
}

TEST_F(Containers, SayWhyNot) {
    const std::string whole = parts_.make("in.mov", "-map 0:v -map 1:a -c:a pcm_s16le");
    const std::string cut = parts_ / "cut.mov";
    write_text(cut, read_text(whole).substr(0, 200000));
    EXPECT_THAT(refusal(cut), HasSubstr("its index (moov) is missing"));
    EXPECT_THAT(refusal(parts_.make("mute.mp4", "-map 0:v")), HasSubstr("has no sound"));
    const std::string dts = parts_.make("dts.mkv", "-map 1:a -strict -2 -c:a dca");
    EXPECT_THAT(refusal(dts), HasSubstr("no encoder for it; --audio-codec aac would serve"));
    EXPECT_EQ("aac", codec_and_rate(level(dts, "--audio-codec aac")).substr(0, 3));
    EXPECT_THAT(refusal(parts_.make("secret.mp4",
                                    "-map 1:a -c:a aac -encryption_scheme cenc-aes-ctr "
                                    "-encryption_key 76a6c65c5ea762046bd749a2e632ccbb "
                                    "-encryption_kid a7e61c373e219033c21091fa607bf3b8")),
                HasSubstr("it is encrypted"));
    const std::string changing = parts_ / "changing.aac";
    write_text(changing, read_text(parts_.make("a.aac", "-map 1:a -c:a aac")) +
                             read_text(parts_.make("b.aac", "-map 1:a -ar 22050 -c:a aac")));
    EXPECT_THAT(refusal(changing), HasSubstr("changes from 48000 Hz, 1 channels to 22050 Hz"));
}

std::string big_endian(std::size_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
            static_cast<char>(value >> 8), static_cast<char>(value)};
}

TEST_F(Containers, RefuseTheAbsurd) {
    // The track ten thousand times; the index stands behind the data, so no offset changes.
    std::string many = read_text(parts_.make("many.m4a", "-map 1:a -map_chapters -1 -c:a alac"));
    const std::size_t index = many.find("moov") - 4;
    const std::size_t track = many.find("trak", index) - 4;
    const std::size_t length = many.find("udta", track) - 4 - track;
    const std::string copy = many.substr(track, length);
    for (int i = 0; i < 10000; ++i) {
        many.insert(track, copy);
    }
    many.replace(index, 4, big_endian(many.size() - index));
    write_text(parts_ / "tracks.m4a", many);
    EXPECT_THAT(refusal(parts_ / "tracks.m4a"), HasSubstr("more than 100 streams"));

    // Matroska's duration, a double of so many ms: 1e12.
    std::string ages = read_text(parts_.make("in.mka", "-map 1:a -c:a libopus"));
    const std::size_t duration = ages.find("\x44\x89\x88");
    ASSERT_NE(std::string::npos, duration);
    ages.replace(duration + 3, 8, std::string("\x42\x6d\x1a\x94\xa2\0\0\0", 8));
    write_text(parts_ / "ages.mka", ages);
    EXPECT_THAT(refusal(parts_ / "ages.mka"), HasSubstr("claims to last 11574 days"));
}

TEST_F(Containers, KeepFreeTagsOfMp4AndTellItsPadding) {
    const std::string input = parts_.make("in.m4a", "-map 1:a -c:a aac");
    const std::string kName = "----:com.apple.iTunes:";
    {
        TagLib::MP4::File file(input.c_str());
        file.tag()->setItem(kName + "Recorder", TagLib::StringList("Täpe 7"));
        file.tag()->setItem(kName + "replaygain_track_gain", TagLib::StringList("-3 dB"));
        ASSERT_TRUE(file.save());
    }
    TagLib::MP4::File file(level(input).c_str());
    EXPECT_EQ(TagLib::String("Täpe 7"),
              file.tag()->item(kName + "Recorder").toStringList().toString());
    EXPECT_FALSE(file.tag()->contains(kName + "replaygain_track_gain"));
    // 6 s at 48 kHz are 288000 = 0x46500 samples, 281 blocks of 1024 and 256: 768 are padding.
    EXPECT_THAT(file.tag()->item(kName + "iTunSMPB").toStringList().toString().to8Bit(),
                HasSubstr(" 00000000 00000400 00000300 0000000000046500 "));
}

// Recordings need nothing of what reads videos; videos need it from beside the program only.
TEST_F(Containers, AreReadByAModuleThatOthersDoWithout) {
    const std::string memo = parts_.make("memo.m4a", "-map 1:a -c:a aac");
    const std::string talk = parts_.make("talk.wav", "-map 1:a");
    const TempDir away;
    run("mkdir " + away / "bin" + " && cp " QUORVANE " " + away / "bin");
    run("cp " MEDIA_MODULE " " + away.path());
    const std::string in_its_folder = "cd " + away.path() + " && LD_LIBRARY_PATH=. bin/quorvane ";
    run(in_its_folder + talk);
    const ProgramResult result = run_program(in_its_folder + memo);
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("memo.m4a: libsndfile does not read it, and " + away.path()));
    EXPECT_THAT(result.err, HasSubstr("quorvane-media.so, which reads videos and phone memos, "
                                      "cannot be loaded: cannot open shared object file"));
}

#ifdef __linux__
// A file that refers to others opens none of them, whatever it is called.
TEST_F(Containers, OpenNothingElse) {
    const std::string bait = parts_.make("bait.m4a", "-map 1:a -c:a aac");
    // A QuickTime file whose data lies in the bait: its only data reference is an alias to it.
    std::string referring = read_text(parts_.make("in.mov", "-map 1:a -c:a pcm_s16le"));
    const std::size_t reference = referring.find("url \0\0\0\1", 0, 8);
    ASSERT_NE(std::string::npos, reference);
    referring.replace(reference, 8, std::string("alis\0\0\0\0", 8));
    const TempDir dir;

    struct Trap {
        const char* name;
        std::string text;
        const char* reason;
    };

    const int watch = inotify_init1(IN_NONBLOCK);
    ASSERT_GE(inotify_add_watch(watch, bait.c_str(), IN_OPEN), 0);
    for (const Trap& trap :
         {Trap{"concat.mp4", "ffconcat version 1.0\nfile " + bait + "\n", "is not supported"},
          {"hls.mp4",
           "#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:6\n#EXTINF:6,\nfile://" + bait +
               "\n#EXT-X-ENDLIST\n",
           "is not supported"},
          {"dash.mp4",
           "<?xml version=\"1.0\"?><MPD xmlns=\"urn:mpeg:dash:schema:mpd:2011\" "
           "profiles=\"urn:mpeg:dash:profile:isoff-on-demand:2011\"><Period><AdaptationSet>"
           "<Representation><BaseURL>file://" +
               bait +
               "</BaseURL></Representation>"
               "</AdaptationSet></Period></MPD>",
           "failed"},
          {"sdp.mp4",
           "v=0\no=- 0 0 IN IP4 127.0.0.1\ns=x\nc=IN IP4 127.0.0.1\nt=0 0\n"
           "m=audio 5004 RTP/AVP 96\na=rtpmap:96 opus/48000\n",
           "is not supported"}}) {
        SCOPED_TRACE(trap.name);
        write_text(dir / trap.name, trap.text);
        EXPECT_THAT(refusal(dir / trap.name), HasSubstr(trap.reason));
    }
    write_text(dir / "reference.mov", referring);
    run_program(QUORVANE " " + dir / "reference.mov");
    char events[256];
    EXPECT_LT(read(watch, events, sizeof events), 0) << "the file referred to was opened";
    close(watch);
}
#endif
