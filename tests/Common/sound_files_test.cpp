#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <limits>
#include <numeric>

#include "Common/audio/SoundFile.h"
#include "Common/audio/finite.h"
#include "Common/audio/frame_file.h"
#include "Common/audio/is_constant.h"
#include "Common/audio/scratch_sounds.h"
#include "Common/reporting/failure.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

/** 1000 frames of two channels whose samples tell where they stand: +-frame / 1000. */
Signal numbered() {
    Signal signal{8000, 2, {}};
    for (int frame = 0; frame < 1000; ++frame) {
        signal.samples.push_back(frame / 1000.0);
        signal.samples.push_back(-frame / 1000.0);
    }
    return signal;
}

class SoundFiles : public testing::Test {
  protected:
    SoundFiles() { write_sound(dir / "in.wav", numbered()); }

    TempDir dir;
};

TEST_F(SoundFiles, ASpanLimitsPositionsAndReads) {
    SoundFile file(dir / "in.wav", "name", 1, 2, 100, 200, true);
    EXPECT_EQ("name", file.auxName());
    EXPECT_EQ(3, file.aux1() + file.aux2());
    EXPECT_EQ(100, file.GetFrames());
    EXPECT_EQ(0, file.Tell());
    EXPECT_EQ(190, file.Seek(90, SEEK_SET));
    EXPECT_EQ(90, file.Tell());

    std::vector<double> samples(2 * 8192);
    EXPECT_EQ(10, file.ReadDoubleFrames(samples.data(), 8192));
    EXPECT_EQ(0.19, samples[0]);
    EXPECT_EQ(-0.199, samples[19]);
    EXPECT_EQ(0, file.ReadDoubleFrames(samples.data(), 8192));

    EXPECT_EQ(100, file.Seek(0, SEEK_SET));
    EXPECT_FALSE(file.Rewind());
    EXPECT_EQ(200, file.ReadDouble(samples.data(), 8192));
    EXPECT_EQ(0.1, samples[0]);

    // The integer and float reads take the distance from the span-relative position to the end in
    // the file's numbering: 200 - 0 frames here, of which 100 lie past the span.
    file.Seek(0, SEEK_SET);
    std::vector<float> floats(8192);
    EXPECT_EQ(400, file.ReadFloat(floats.data(), 8192));
}

TEST_F(SoundFiles, SeeksOutsideTheSpanSayWhere) {
    SoundFile file(dir / "in.wav", "", -1, -1, 100, 200, true);
    const auto text_of = [&file](long long offset, int whence) -> std::string {
        try {
            file.Seek(offset, whence);
        } catch (const std::runtime_error& error) {
            return error.what();
        }
        return "";
    };
    const std::string in_file = " in file " + dir / "in.wav";
    EXPECT_EQ(
        "###ERROR### seeking to 200" + in_file + "\n Attempt to seek past logical file end at 200",
        text_of(100, SEEK_SET));
    EXPECT_EQ("###ERROR### seeking to 50" + in_file +
                  "\n Attempt to seek to before logical file start at 100",
              text_of(-50, SEEK_SET));
    EXPECT_THAT(text_of(1200000, SEEK_SET),
                StartsWith("###ERROR### seeking to 1,200,100" + in_file +
                           "\n Attempt to seek to before logical file start at 100\n Errno="));
    EXPECT_EQ(150, file.Seek(50, SEEK_SET)) << "the object stays usable";
}

TEST_F(SoundFiles, FormatsTellTheirBitDepth) {
    struct Row {
        int format, depth, max;
    };

    const Row rows[] = {
        {SF_FORMAT_WAV | SF_FORMAT_PCM_U8, 8, 255},
        {SF_FORMAT_AIFF | SF_FORMAT_PCM_S8, -8, 127},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_16, -16, 32767},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_24, -24, 8388607},
        {SF_FORMAT_WAV | SF_FORMAT_PCM_32, -32, 2147483647},
        {SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0, 0},
    };
    for (const Row& row : rows) {
        write_sound(dir / "depth", numbered(), row.format);
        const SoundFile file(dir / "depth", true);
        EXPECT_EQ(row.depth, file.GetBitDepth()) << format_name(row.format);
        EXPECT_EQ(row.max, file.GetMaxValue()) << format_name(row.format);
    }
}

TEST_F(SoundFiles, FailuresNameTheFile) {
    const CapturedOutput captured;
    try {
        SoundFile missing(dir / "missing.wav", true);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), StartsWith("Error opening sound file: " + dir / "missing.wav" +
                                             "\nReason: System error"));
    }
    SoundFile input(dir / "in.wav", true);
    try {
        reporting::forget_failure();
        SoundFile output(dir / "no folder/out.wav", input);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ("error opening sound file \"" + dir / "no folder/out.wav" + "\"", error.what());
    }
    EXPECT_EQ("", captured.err());
    EXPECT_THAT(reporting::first_failure().text, HasSubstr("No such file or directory"));
    try {
        SoundFile late(dir / "in.wav", "", -1, -1, 1001, -1, true);
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), StartsWith("###ERROR### seeking to 1,001 in file " +
                                             dir / "in.wav" + "\n Attempt to seek to before"));
    }
}

TEST_F(SoundFiles, ConstantMeansEqualToTheFirstFrameChannelByChannel) {
    struct Row {
        const char* name;
        Signal signal;
        bool constant;
    };

    Signal offsets = signals::silence(9000, 8000, 2);
    for (std::size_t i = 0; i < offsets.samples.size(); ++i) {
        offsets.samples[i] = i % 2 == 0 ? 0.25 : -0.5;
    }
    Signal late = offsets;
    late.samples.back() = -0.5000001;
    const Row rows[] = {{"no frames", signals::silence(0), true},
                        {"silence", signals::silence(20000), true},
                        {"an offset in each channel", offsets, true},
                        {"the last sample of the second block differs", late, false}};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        write_sound(dir / "constant.wav", row.signal);
        SoundFile file(dir / "constant.wav", true);
        SF_INFO info;
        file.GetInfo(&info);
        EXPECT_EQ(row.constant, is_constant(file, info));
    }
}

TEST(FiniteGuard, NamesTheFirstFrameThatIsNoNumber) {
    SF_INFO info{};
    info.channels = 2;
    info.format = kWavFloat;
    FiniteGuard guard("talk.wav", info);
    std::vector<double> block(20, 0.5);
    guard.check(block.data(), 20);
    block[7] = -std::numeric_limits<double>::infinity();
    block[8] = std::numeric_limits<double>::quiet_NaN();
    try {
        guard.check(block.data(), 20);
        FAIL();
    } catch (const std::runtime_error& error) {  // frames 0..9 before, sample 7 is in frame 10 + 3
        EXPECT_STREQ("talk.wav: the sample in frame 13 is infinite", error.what());
    }
}

class FrameFiles : public SoundFiles {};

TEST_F(FrameFiles, ReadUntilTheEndAndThenNothing) {
    InputSoundFile input(dir / "in.wav");
    EXPECT_EQ(1000, input.Read(4096).frames);
    EXPECT_EQ(0, input.Read(4096).frames);
    EXPECT_EQ(990, input.Seek(990, SEEK_SET));
    const FrameArray tail = input.Read(5);
    const FrameArray& same_samples = FrameArray(tail);
    EXPECT_EQ(0.994, same_samples.samples[8]);
}

TEST_F(FrameFiles, RefuseFramesOfAnotherChannelCountBeforeWriting) {
    InputSoundFile input(dir / "in.wav");
    {
        OutputSoundFile mono(dir / "mono.wav", kWav16, 1, 8000);
        EXPECT_THROW(mono.Write(input.Read(10)), incompatible_frames_err);
        OutputSoundFile like(dir / "like.wav", input);
        EXPECT_EQ(10, like.Write(input.Read(10)));
    }
    EXPECT_EQ(0, sound_info(dir / "mono.wav").frames);
    const SF_INFO info = sound_info(dir / "like.wav");
    EXPECT_EQ(10, info.frames);
    EXPECT_EQ(kWavDouble, info.format);
    EXPECT_EQ(2, info.channels);
    EXPECT_EQ(8000, info.samplerate);
}

TEST(ScratchSounds, HoldWhatARealFileWouldHoldInTheRoomOfTheLastOne) {
    const TempDir folder;
    ScratchSounds& scratch = ScratchSounds::of_this_thread();
    const std::string held = folder / "held.wav";
    const auto write = [&](const std::string& path, const Signal& signal, int format) {
        SF_INFO info{0, signal.sample_rate_hz, signal.channels, format, 0, 0};
        SoundHandle handle = open_sound_for_writing(path, info);
        ASSERT_TRUE(handle);
        sf_writef_double(handle.get(), signal.samples.data(), signal.frames());
        EXPECT_EQ(0, close_sound(handle));
    };
    // Each is shorter or in another format than the one before, whose bytes lie in its room.
    for (const int format :
         {SF_FORMAT_WAV | SF_FORMAT_DOUBLE, SF_FORMAT_AIFF | SF_FORMAT_FLOAT, kWav16,
          SF_FORMAT_CAF | SF_FORMAT_PCM_24, SF_FORMAT_WAV | SF_FORMAT_PCM_U8}) {
        for (const long long frames : {5001LL, 101LL, 0LL}) {
            SCOPED_TRACE(testing::Message() << std::hex << format << " " << std::dec << frames);
            const Signal signal = signals::square(0.5, frames, 8000);
            scratch.reserve(held, folder / "run");
            write(held, signal, format);
            write(folder / "real.wav", signal, format);
            EXPECT_THAT(folder.entries(), testing::ElementsAre("real.wav"));
            ASSERT_TRUE(scratch.has(held));
            EXPECT_EQ(0, copy_sound(held, folder / "copy.wav"));
            EXPECT_TRUE(read_text(folder / "real.wav") == read_text(folder / "copy.wav"));
            std::filesystem::remove(folder / "copy.wav");
            scratch.release(held);
            EXPECT_FALSE(scratch.has(held));
        }
    }
    // Without a folder for it, and in an encoding of unknown length, a path stands for itself.
    scratch.reserve(held, folder / "none/run");
    scratch.drop_room();
    write(held, signals::square(0.5, 100, 8000), kWav16);
    EXPECT_TRUE(std::filesystem::remove(held));
    scratch.reserve(held, folder / "run");
    write(held, signals::square(0.5, 100, 8000), SF_FORMAT_WAV | SF_FORMAT_ULAW);
    EXPECT_TRUE(std::filesystem::remove(held));
    EXPECT_FALSE(scratch.has(held));
    scratch.clear();
}

}  // namespace
