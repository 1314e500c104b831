#include "leveling/conversation/conversation.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>

#include "leveling/conversation/mix.h"
#include "leveling/conversation/modes.h"
#include "leveling/conversation/track_gains.h"
#include "leveling/conversation/voices.h"
#include "leveling/preparation/levels.h"
#include "tests/support/batch_run.h"
#include "tests/support/talk_tracks.h"

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;

namespace quorvane {
namespace {

constexpr double kBin_s = 0.05;

/** A turn of one of the voices, in seconds. */
struct Turn {
    int voice;
    double from_s;
    double to_s;
};

/**
 * Levels as a microphone for each voice gives them: its voice at level_db, the others so many dB
 * lower by spill_db, and its noise. Syllables rise and fall by 12 dB.
 */
std::vector<std::vector<float>> levels_of(const std::vector<Turn>& turns,
                                          const std::vector<double>& level_db,
                                          double spill_db,
                                          double noise_db,
                                          double seconds) {
    const auto bins = static_cast<std::size_t>(seconds / kBin_s);
    std::vector<std::vector<float>> levels(level_db.size());
    for (std::size_t track = 0; track < level_db.size(); ++track) {
        for (std::size_t bin = 0; bin < bins; ++bin) {
            double power = std::pow(10, noise_db / 10);
            for (const Turn& turn : turns) {
                const double at_s = (static_cast<double>(bin) + 0.5) * kBin_s;
                if (at_s > turn.from_s && at_s < turn.to_s) {
                    const double syllable =
                        6 * std::sin(static_cast<double>(bin) * 1.3 + turn.voice);
                    const bool is_own = turn.voice == static_cast<int>(track);
                    power +=
                        std::pow(10, (level_db[track] - (is_own ? 0 : spill_db) + syllable) / 10);
                }
            }
            levels[track].push_back(static_cast<float>(10 * std::log10(power)));
        }
    }
    return levels;
}

/** The share of a turn's bins, its first and last two left out, in which the voice is found. */
double share_found(const std::vector<bool>& speaks, double from_s, double to_s) {
    const auto from = speaks.begin() + static_cast<std::ptrdiff_t>(from_s / kBin_s) + 2;
    const auto to = speaks.begin() + static_cast<std::ptrdiff_t>(to_s / kBin_s) - 2;
    return static_cast<double>(std::count(from, to, true)) / static_cast<double>(to - from);
}

TEST(Modes, AreSplitBetweenThem) {
    // Ten values at -20 and five at 10: any threshold between gives the classes, their middle is
    // -5.
    std::vector<float> values(10, -20.0F);
    values.insert(values.end(), 5, 10.0F);
    const Modes modes = split_at_modes(values);
    EXPECT_TRUE(modes.found);
    EXPECT_DOUBLE_EQ(-5, modes.threshold);
    EXPECT_DOUBLE_EQ(30, modes.distance());
    EXPECT_FALSE(split_at_modes({3.0F, 3.0F}).found);
}

struct VoicesRow {
    const char* name;
    std::vector<double> level_db;
    double spill_db;
    double noise_db;
};

TEST(Voices, AreFoundWhateverTheMicrophonesGains) {
    const std::vector<VoicesRow> rows = {
        {"two", {-20, -20}, 20, -60},         {"near each other", {-20, -20}, 12, -60},
        {"20 dB apart", {-20, -40}, 20, -65}, {"noise", {-20, -30}, 20, -50},
        {"three", {-20, -26, -32}, 12, -60},  {"without spill", {-20, -30}, 70, -90}};
    for (const VoicesRow& row : rows) {
        SCOPED_TRACE(row.name);
        std::vector<Turn> turns;
        const auto count = static_cast<int>(row.level_db.size());
        for (int i = 0; i < 12; ++i) {
            turns.push_back({i % count, 1 + 4.0 * i, 4.5 + 4.0 * i});
        }
        const Voices voices =
            find_voices(levels_of(turns, row.level_db, row.spill_db, row.noise_db, 50));
        for (const Turn& turn : turns) {
            for (int track = 0; track < count; ++track) {
                const double share = share_found(voices.speaks[track], turn.from_s, turn.to_s);
                EXPECT_DOUBLE_EQ(track == turn.voice ? 1 : 0, share) << turn.from_s << " " << track;
            }
        }
    }
}

TEST(Voices, OfTwoAtOnceAreBothFound) {
    const std::vector<Turn> turns = {{0, 1, 6}, {1, 5, 10}, {0, 9, 14}, {1, 15, 18}, {0, 19, 22}};
    const Voices voices = find_voices(levels_of(turns, {-20, -26}, 20, -60, 23));
    for (const Turn& both : {Turn{0, 5, 6}, Turn{0, 9, 10}}) {
        EXPECT_DOUBLE_EQ(1, share_found(voices.speaks[0], both.from_s, both.to_s));
        EXPECT_DOUBLE_EQ(1, share_found(voices.speaks[1], both.from_s, both.to_s));
    }
}

TEST(Voices, AGuestWhoNeverSpeaksHasNone) {
    for (double gain_db : {-12.0, 0.0, 6.0}) {
        const std::vector<Turn> turns = {{0, 1, 6}, {0, 7, 12}, {0, 13, 19}};
        std::vector<std::vector<float>> levels = levels_of(turns, {-20, -20}, 20, -60, 20);
        for (float& level : levels[1]) {
            level += static_cast<float>(gain_db);
        }
        const Voices voices = find_voices(levels);
        EXPECT_FALSE(voices.is_silent(0)) << gain_db;
        EXPECT_TRUE(voices.is_silent(1)) << gain_db;
        EXPECT_THAT(voices.speaks[1], Each(false)) << gain_db;
    }
}

std::vector<bool> marked(const std::vector<Turn>& turns, double seconds) {
    std::vector<bool> result(static_cast<std::size_t>(seconds / kBin_s));
    for (const Turn& turn : turns) {
        std::fill(result.begin() + static_cast<std::ptrdiff_t>(turn.from_s / kBin_s),
                  result.begin() + static_cast<std::ptrdiff_t>(turn.to_s / kBin_s), true);
    }
    return result;
}

TEST(Duck, OpensBeforeTheOwnerAndStaysWhereNobodySpeaks) {
    const std::vector<bool> own = marked({{0, 5, 8}, {0, 14, 16}}, 20);
    const std::vector<bool> others =
        marked({{1, 1, 4}, {1, 9, 11}, {1, 11.2, 12}, {1, 14.5, 15}}, 20);
    const std::vector<float> duck = duck_curve(own, others);
    const auto at = [&](double moment_s) {
        return duck[static_cast<std::size_t>(moment_s / kBin_s)];
    };
    EXPECT_FLOAT_EQ(12, at(0));  // the first to speak is another: no step at the beginning
    EXPECT_FLOAT_EQ(12, at(3));
    EXPECT_FLOAT_EQ(0, at(5));
    EXPECT_FLOAT_EQ(0, at(8.2));
    EXPECT_FLOAT_EQ(12, at(11.1));  // a short silence of all
    EXPECT_FLOAT_EQ(12, at(13));
    EXPECT_FLOAT_EQ(0, at(14.7));  // both speak
    for (std::size_t i = 1; i < duck.size(); ++i) {
        EXPECT_LE(std::fabs(duck[i] - duck[i - 1]), 2.41) << i;
    }
}

TEST(TrackCurve, IsNeverAboveTheVoiceAround) {
    // A voice at -30 and later at -24, with a cough between: 0.4 s are not a phrase.
    const std::vector<Turn> turns = {{0, 1, 5}, {0, 12, 12.4}, {0, 20, 24}};
    std::vector<float> levels(600, -60.0F);
    for (const Turn& turn : turns) {
        std::fill(levels.begin() + static_cast<std::ptrdiff_t>(turn.from_s / kBin_s),
                  levels.begin() + static_cast<std::ptrdiff_t>(turn.to_s / kBin_s),
                  turn.from_s < 2    ? -30.0F
                  : turn.from_s < 13 ? -45.0F
                                     : -24.0F);
    }
    TrackSpeech speech;
    speech.own = marked(turns, 30);
    speech.others = marked({{1, 6, 11}}, 30);
    speech.phrases = find_own_phrases(levels, speech.own);
    const std::vector<float> curve = track_curve(speech, -20, 0);
    const auto at = [&](double moment_s) {
        return curve[static_cast<std::size_t>(moment_s / kBin_s)];
    };
    EXPECT_NEAR(10, at(3), 0.1);
    EXPECT_NEAR(-8, at(9), 0.1);    // 4, the lower one of both sides, and 12 dB down
    EXPECT_NEAR(4, at(12.2), 0.1);  // the cough
    EXPECT_NEAR(4, at(22), 0.1);
}

TEST(Mix, TakesTheFirstTracksCodingInTheSameContainer) {
    EXPECT_EQ(SF_FORMAT_WAV | SF_FORMAT_PCM_16,
              mix_format("wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16).format);
    EXPECT_EQ(SF_FORMAT_FLAC | SF_FORMAT_PCM_24,
              mix_format("flac", SF_FORMAT_WAV | SF_FORMAT_PCM_16).format);
    EXPECT_TRUE(mix_format("opus", SF_FORMAT_OGG | SF_FORMAT_VORBIS).is_lossy());
    EXPECT_FALSE(mix_format("mp4", 0).is_known());
}

class Together : public BatchRun {
  protected:
    static constexpr int kRate = 16000;

    Together() { write_talk(dir_.path()); }

    /** Own voice over the other one's spill, dB. */
    static double own_over_spill(const Signal& signal, int own) {
        double power[2] = {0, 0};
        for (long long turn = 0; turn < 12; ++turn) {
            const double rms = rms_of(signal, (4 * turn + 1) * kRate, (4 * turn + 3) * kRate);
            power[turn % 2 == own ? 0 : 1] += rms * rms;
        }
        return 10 * std::log10(power[0] / power[1]);
    }
};

TEST_F(Together, SpillGoesDownAndVoicesAreEquallyLoudInTheMix) {
    const ProgramResult result = run("--together host.wav guest.wav --mix talk.flac");
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_THAT(outputs_in("."),
                testing::IsSupersetOf({"guest-leveled.wav", "host-leveled.wav", "talk.flac"}));
    for (const auto& [name, own] : {std::pair("host", 0), {"guest", 1}}) {
        const Signal before = read_sound(dir_ / (std::string(name) + ".wav"));
        const Signal after = read_sound(dir_ / (std::string(name) + "-leveled.wav"));
        EXPECT_EQ(before.frames(), after.frames());
        EXPECT_GT(own_over_spill(after, own), own_over_spill(before, own) + 9) << name;
    }
    EXPECT_NEAR(0, own_over_spill(read_sound(dir_ / "talk.flac"), 0), 1);
    EXPECT_EQ(SF_FORMAT_FLAC | SF_FORMAT_PCM_24, sound_info(dir_ / "talk.flac").format);
}

TEST_F(Together, AMixIsCodedAtItsTarget) {
    for (const char* name : {"talk.mp3", "talk.m4a", "talk.ogg"}) {
        SCOPED_TRACE(name);
        const ProgramResult result = run(std::string("-f --together host.wav guest.wav --mix ") +
                                         name + " --for podcast --json -");
        ASSERT_EQ(0, result.status) << result.err;
        double after_lufs = 0;
        double peak_dbtp = 0;
        std::istringstream lines(result.out);
        for (std::string line; std::getline(lines, line);) {
            const auto json = nlohmann::json::parse(line);
            if (json["conversation"]["mix"] == true) {
                after_lufs = json["after"]["integrated_lufs"];
                peak_dbtp = json["after"]["true_peak_dbtp"];
            } else {
                EXPECT_THAT(json["conversation"]["turns"], testing::SizeIs(testing::Ge(5U)));
            }
        }
        EXPECT_NEAR(-19, after_lufs, 0.5);  // of mono
        EXPECT_LE(peak_dbtp, -0.9);
        const ProgramResult length = run_program(
            "ffprobe -v error -show_entries format=duration -of csv=p=0 '" + (dir_ / name) + "'");
        EXPECT_NEAR(48, std::atof(length.out.c_str()), 0.1);
    }
    EXPECT_THAT(run("-f --together host.wav guest.wav --mix talk.opus").err,
                HasSubstr("an Opus mix needs tracks of 48000 Hz"));
}

TEST_F(Together, AGroupIsDoneOrNotDoneAsOne) {
    ASSERT_EQ(0, run("--together host.wav guest.wav --mix talk.wav").status);
    // All is up to date, also in another order of the words.
    EXPECT_THAT(run("--together guest.wav host.wav --mix talk.wav").out, HasSubstr("3 up to date"));
    // One output gone: all are made again.
    std::filesystem::remove(dir_ / "talk.wav");
    const ProgramResult again = run("--together host.wav guest.wav --mix talk.wav --json -");
    EXPECT_EQ(0, again.status) << again.err;
    for (const auto& [input, facts] : facts(again.out)) {
        EXPECT_EQ("leveled", facts["status"]) << input;
    }
    // One input that cannot be read: nothing is written.
    std::filesystem::remove(dir_ / "talk.wav");
    std::filesystem::remove(dir_ / "host-leveled.wav");
    write_text(dir_ / "broken.wav", "RIFF");
    const ProgramResult failed = run("-f --together broken.wav host.wav guest.wav --mix talk.wav");
    EXPECT_EQ(1, failed.status);
    EXPECT_THAT(failed.err, HasSubstr("broken.wav"));
    EXPECT_THAT(outputs_in("."), testing::Not(Contains("host-leveled.wav")));
    EXPECT_THAT(outputs_in("."), testing::Not(Contains("talk.wav")));
}

TEST_F(Together, TracksOfOneConversationAreNotLeveledOneByOne) {
    // Another talk, a copy of one track, and one that is longer by a frame: none is of the group.
    write_sound(dir_ / "other.wav",
                signals::join({signals::speech(23, kRate), signals::speech(25, kRate)}));
    std::filesystem::create_directory(dir_ / "copies");
    for (const char* copy : {"copies/one.wav", "copies/two.wav"}) {
        std::filesystem::copy_file(dir_ / "host.wav", dir_ / copy);
    }
    const ProgramResult result = run("--for podcast .");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.err, HasSubstr("guest.wav: looks like one of 2 tracks of one conversation "
                                      "(guest.wav, host.wav): "));
    EXPECT_THAT(result.err, HasSubstr("--together"));
    EXPECT_THAT(outputs_in("."), ElementsAre("copies", "guest.wav", "host.wav", "other-leveled.wav",
                                             "other.wav", "tmp"));
    EXPECT_THAT(outputs_in("copies"), testing::SizeIs(4));
    EXPECT_NE(1, run("--for podcast --separate .").status);
    EXPECT_THAT(outputs_in("."), Contains("guest-leveled.wav"));
}

TEST_F(Together, WhatMakesNoSenseIsRefused) {
    for (const char* words : {"--together host.wav", "--together host.wav guest.wav -o x.wav",
                              "--mix m.wav host.wav", "--together host.wav guest.wav --mix m.txt",
                              "--together host.wav guest.wav --mix host.wav",
                              "--together host.wav guest.wav --for podcast",
                              "--together --separate host.wav guest.wav"}) {
        EXPECT_EQ(2, run(words).status) << words;
    }
    EXPECT_THAT(outputs_in("."), ElementsAre("guest.wav", "host.wav", "tmp"));
}

}  // namespace
}  // namespace quorvane
