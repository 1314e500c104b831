#include <gmock/gmock.h>

#include <cmath>
#include <random>

#include "leveling/channels/layout.h"
#include "tests/support/batch_run.h"

using testing::HasSubstr;

namespace quorvane {
namespace {

constexpr int kRate = 16000;
constexpr int kTurn = 4;  // seconds
constexpr int kTurns = 10;

/** Two voices in turn, the second one lower by gap_db. */
class Channels : public BatchRun {
  protected:
    double voice(int who, long long frame, double gap_db) const {
        const bool is_turn = (frame / (kTurn * kRate)) % 2 == who;
        const auto at = static_cast<std::size_t>(frame % (kTurn * kRate));
        return is_turn ? voice_.samples[at] * (who == 0 ? 1 : std::pow(10, -gap_db / 20)) : 0;
    }

    /** f(channel, frame) in every channel. */
    void write(const std::string& name,
               int channels,
               int format,
               const std::function<double(int, long long)>& f) const {
        Signal signal{kRate, channels, {}};
        for (long long frame = 0; frame < kTurns * kTurn * kRate; ++frame) {
            for (int channel = 0; channel < channels; ++channel) {
                signal.samples.push_back(f(channel, frame));
            }
        }
        write_sound(dir_ / name, signal, format);
    }

    /** Level of the even turns over that of the odd ones, dB. */
    static double gap_db(const Signal& signal, int channel) {
        double power[2] = {0, 0};
        for (long long turn = 0; turn < kTurns; ++turn) {
            const double rms = rms_of(signal, (kTurn * turn + 1) * kRate,
                                      (kTurn * turn + kTurn - 1) * kRate, channel);
            power[turn % 2] += rms * rms;
        }
        return 10 * std::log10(power[0] / power[1]);
    }

    /** Whether every sample of a channel is the same in both files. */
    static bool are_same(const Signal& one, const Signal& other, int channel) {
        for (long long frame = 0; frame < one.frames(); ++frame) {
            const auto at = static_cast<std::size_t>(frame * one.channels + channel);
            if (one.samples[at] != other.samples[at]) {
                return false;
            }
        }
        return one.frames() == other.frames();
    }

    Signal voice_ = signals::speech(kTurn, kRate);  // of one level
    std::mt19937 random_{3};                        // its numbers are the same everywhere

    double hiss() { return 0.004 * (static_cast<double>(random_()) / 4294967296.0 - 0.5); }
};

TEST_F(Channels, OnlyTheDialogueOfASurroundFileIsTouched) {
    for (const auto& [name, format] : {std::pair("a16.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_16),
                                       {"a24.wav", SF_FORMAT_WAVEX | SF_FORMAT_PCM_24},
                                       {"a.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24}}) {
        SCOPED_TRACE(name);
        write(name, 6, format, [&](int channel, long long frame) {
            const double centre = 0.3 * (voice(0, frame, 12) + voice(1, frame, 12));
            return (channel == 2 ? centre : 0) + hiss();
        });
        const ProgramResult result = run(name);
        ASSERT_EQ(0, result.status) << result.err;
        EXPECT_THAT(result.out, HasSubstr("the dialogue in its centre channel was leveled"));
        const std::string output =
            std::string(name).replace(std::string(name).find('.'), 1, "-leveled.");
        const Signal before = read_sound(dir_ / name);
        const Signal after = read_sound(dir_ / output);
        for (int channel : {0, 1, 3, 4, 5}) {
            EXPECT_TRUE(are_same(before, after, channel)) << channel;
        }
        EXPECT_GT(gap_db(before, 2), 10);
        EXPECT_NEAR(0, gap_db(after, 2), 1);
        EXPECT_EQ(read_layout(dir_ / name).map, read_layout(dir_ / output).map);
        EXPECT_EQ(2, read_layout(dir_ / output).centre());
    }
}

TEST_F(Channels, DialogueInVideoFilesIsLeveledAndTheRestStays) {
    write("a.wav", 6, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, [&](int channel, long long frame) {
        const double centre = 0.3 * (voice(0, frame, 12) + voice(1, frame, 12));
        return (channel == 2 ? centre : 0) + hiss();
    });
    const auto ffmpeg = [&](const std::string& words) {
        return run_program("cd '" + dir_.path() + "' && ffmpeg -v error -y " + words).status;
    };
    const auto layout = [&](const std::string& name) {
        return run_program(
                   "ffprobe -v error -show_entries stream=codec_name,channels,"
                   "channel_layout -of csv=p=0 '" +
                   (dir_ / name) + "'")
            .out;
    };

    struct Row {
        const char* name;
        const char* coding;
        bool is_exact;
        double most_gap_db = 1;
    };

    for (const Row& row : {Row{"pcm.mov", "pcm_s24le", true},
                           {"pcm16.mkv", "pcm_s16le", true},
                           {"flac.mkv", "flac", true},
                           {"aac.m4a", "aac -b:a 384k", false},
                           // Without the hiss between syllables, which this coding drops, other
                           // bins are words; the gap of the loudness is 0.6 LU.
                           {"ac3.mkv", "ac3", false, 1.6},
                           {"eac3.mkv", "eac3", false, 1.6},
                           {"surround.opus", "libopus -ar 48000", false}}) {
        SCOPED_TRACE(row.name);
        const std::string name = row.name;
        ASSERT_EQ(0, ffmpeg("-i a.wav -c:a " + std::string(row.coding) + " " + name));
        const ProgramResult result = run(name);
        ASSERT_EQ(0, result.status) << result.err;
        EXPECT_THAT(result.out, HasSubstr("the dialogue in its centre channel was leveled"));
        const std::string output = std::string(name).replace(name.find('.'), 1, "-leveled.");
        EXPECT_EQ(layout(name), layout(output));
        ASSERT_EQ(0, ffmpeg("-i " + name + " -ar 16000 -c:a pcm_f32le before.wav"));
        ASSERT_EQ(0, ffmpeg("-i " + output + " -ar 16000 -c:a pcm_f32le after.wav"));
        const Signal before = read_sound(dir_ / "before.wav");
        const Signal after = read_sound(dir_ / "after.wav");
        EXPECT_GT(gap_db(before, 2), 10);
        EXPECT_NEAR(0, gap_db(after, 2), row.most_gap_db);
        for (int channel : {0, 1, 3, 4, 5}) {
            EXPECT_TRUE(!row.is_exact || are_same(before, after, channel)) << channel;
        }
    }
}

TEST_F(Channels, ALayoutThatACodecDoesNotTakeIsRefusedBeforeWork) {
    write("a.wav", 8, SF_FORMAT_WAVEX | SF_FORMAT_PCM_16,
          [&](int channel, long long frame) { return channel == 2 ? voice(0, frame, 0) : hiss(); });
    ASSERT_EQ(
        0,
        run_program("cd '" + dir_.path() + "' && ffmpeg -v error -i a.wav -c:a flac a.mkv").status);
    const ProgramResult refused = run("--audio-codec ac3 a.mkv");
    EXPECT_EQ(1, refused.status);
    EXPECT_THAT(refused.err, HasSubstr("8 channels, 7.1"));
    EXPECT_THAT(refused.err, HasSubstr("--audio-codec aac would serve"));
    EXPECT_THAT(outputs_in("."), testing::Not(testing::Contains("a-leveled.mkv")));
    EXPECT_EQ(0, run("--audio-codec aac a.mkv").status);
}

TEST_F(Channels, BroadcastOfSurroundReportsTheDialogue) {
    write("a.wav", 6, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, [&](int channel, long long frame) {
        const double centre = 0.3 * (voice(0, frame, 12) + voice(1, frame, 12));
        return channel == 2 ? centre : channel == 3 ? 0 : 20 * hiss();
    });
    const ProgramResult result = run("--for broadcast a.wav");
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, HasSubstr("Programme Loudness -23.0 LUFS, Dialogue Loudness -"));
    EXPECT_THAT(result.out, HasSubstr("Loudness-to-Dialogue Ratio "));
    // ffmpeg measures the same.
    const ProgramResult judge =
        run_program("ffmpeg -hide_banner -nostats -i '" + (dir_ / "a-leveled.wav") +
                    "' -af ebur128 -f null - 2>&1 | grep 'I:' | tail -1 | tr -dc '0-9.-'");
    EXPECT_NEAR(-23, std::atof(judge.out.c_str()), 0.11);
    EXPECT_EQ(2, read_layout(dir_ / "a-leveled.wav").centre());
}

TEST_F(Channels, WithoutSpeechInTheCentreAllButTheLfeGetOneGain) {
    write("film.wav", 6, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24, [&](int channel, long long frame) {
        const double voices = 0.3 * (voice(0, frame, 12) + voice(1, frame, 12));
        return (channel < 2 ? voices : 0) + hiss();
    });
    const ProgramResult result = run("film.wav");
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, HasSubstr("one gain was used for all of its 6 channels but the LFE"));
    const Signal before = read_sound(dir_ / "film.wav");
    const Signal after = read_sound(dir_ / "film-leveled.wav");
    EXPECT_TRUE(are_same(before, after, 3));
    EXPECT_NEAR(0, gap_db(after, 0), 1);
    // The surround's hiss moves with the voices, so that it is louder beside the quiet one.
    EXPECT_LT(gap_db(after, 4), -8);
}

TEST_F(Channels, ARecordersChannelsAndTwoGuestsOfAStereoFileAreTracks) {
    const auto tracks = [&](int channel, long long frame) {
        const double spill = frame >= 160 ? 0.1 * voice(1 - channel % 2, frame - 160, 6) : 0;
        return 0.3 * (voice(channel % 2, frame, 6) + spill) * (channel < 2 ? 1 : 0.3) +
               0.1 * hiss();
    };
    write("poly.wav", 3, SF_FORMAT_WAV | SF_FORMAT_PCM_24, tracks);
    write("guests.wav", 2, SF_FORMAT_WAV | SF_FORMAT_PCM_16, tracks);
    for (const auto& [words, name] :
         {std::pair("poly.wav", "poly"), {"--channels tracks guests.wav", "guests"}}) {
        SCOPED_TRACE(words);
        const ProgramResult result = run(words);
        ASSERT_EQ(0, result.status) << result.err;
        EXPECT_THAT(result.out, HasSubstr("channels are the tracks of a conversation"));
        const Signal before = read_sound(dir_ / (std::string(name) + ".wav"));
        const Signal after = read_sound(dir_ / (std::string(name) + "-leveled.wav"));
        EXPECT_GT(gap_db(after, 0), gap_db(before, 0) + 5);
        EXPECT_LT(gap_db(after, 1), gap_db(before, 1) - 5);
    }
}

TEST_F(Channels, AMaskThatNamesNoPlacesStaysEmpty) {
    write("quad.wav", 4, SF_FORMAT_WAVEX | SF_FORMAT_PCM_24,
          [&](int channel, long long frame) { return 0.2 * voice(0, frame, 0) * (channel + 1); });
    EXPECT_FALSE(read_layout(dir_ / "quad.wav").is_unnamed);
    clear_mask(dir_ / "quad.wav");
    ASSERT_TRUE(read_layout(dir_ / "quad.wav").is_unnamed);
    ASSERT_EQ(0, run("quad.wav").status);
    EXPECT_TRUE(read_layout(dir_ / "quad-leveled.wav").is_unnamed);
    EXPECT_EQ(0, run_program("ffprobe -v error -show_entries stream=channel_layout -of csv=p=0 '" +
                             (dir_ / "quad-leveled.wav") + "' | grep -q '^unknown$'")
                     .status);
}

TEST_F(Channels, WhatCannotBeIsRefused) {
    write("two.wav", 2, kWav16, [&](int, long long frame) { return 0.3 * voice(0, frame, 0); });
    write("four.wav", 4, kWav16, [&](int, long long frame) { return 0.3 * voice(0, frame, 0); });
    EXPECT_THAT(run("--channels dialogue two.wav").err, HasSubstr("two.wav: it has no centre"));
    EXPECT_THAT(run("--plain four.wav").err, HasSubstr("it has 4 channels, at most 2 can be"));
    EXPECT_EQ(2, run("--channels front four.wav").status);
    EXPECT_EQ(2, run("--plain --channels each four.wav").status);
}

}  // namespace
}  // namespace quorvane
