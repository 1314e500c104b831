#include "leveling/conversation/clocks.h"

#include <gmock/gmock.h>

#include <cmath>
#include <cstdlib>
#include <random>

#include "tests/support/batch_run.h"

using testing::HasSubstr;

namespace quorvane {
namespace {

constexpr int kRate = 16000;
constexpr int kSeconds = 90;
constexpr double kSpill = 0.1;            // -20 dB
constexpr long long kSpillFrames = 160;   // 10 ms, in both directions
constexpr double kExactDrift_ppm = -125;  // of a recorder of 16002 Hz, read as 16000

/** Two recorders of one talk; the second one's began at another time and runs at another speed. */
class Clocks : public BatchRun {
  protected:
    /** Noise in syllables, in turns of 2 to 5 s; no part of it comes again. */
    static std::vector<double> voice(int who) {
        std::mt19937 random(11 +
                            static_cast<unsigned>(who));  // its numbers are the same everywhere
        std::mt19937 turns(5);
        std::vector<double> samples;
        for (int speaker = 0; samples.size() < kSeconds * kRate; speaker = 1 - speaker) {
            const auto length = static_cast<std::size_t>(kRate * (2 + turns() % 4));
            for (std::size_t i = 0; i < length; ++i) {
                const double syllable =
                    std::fabs(std::sin(3.14159 * static_cast<double>(i) / (0.21 * kRate)));
                const double noise = static_cast<double>(random()) / 4294967296.0 - 0.5;
                samples.push_back(speaker == who ? 0.6 * noise * syllable * syllable : 0);
            }
        }
        return samples;
    }

    /** The track of a voice with the other one's spill, and noise. */
    static Signal track(int own, double spill) {
        static const std::vector<double> voices[] = {voice(0), voice(1)};
        std::mt19937 random(31 + static_cast<unsigned>(own));
        Signal signal{kRate, 1, {}};
        for (long long i = 0; i < kSeconds * kRate; ++i) {
            const double other =
                i < kSpillFrames ? 0 : voices[1 - own][static_cast<std::size_t>(i - kSpillFrames)];
            const double hiss = static_cast<double>(random()) / 4294967296.0 - 0.5;
            signal.samples.push_back(voices[own][static_cast<std::size_t>(i)] + spill * other +
                                     0.002 * hiss);
        }
        return signal;
    }

    /** Ben's recorder begins before Anna's where early_s is above 0, else after it. */
    void write_tracks(double early_s, bool drifts, double spill = kSpill) {
        write_sound(dir_ / "anna.wav", track(0, spill), SF_FORMAT_WAV | SF_FORMAT_PCM_24);
        Signal ben = track(1, spill);
        const auto frames = static_cast<std::ptrdiff_t>(std::fabs(early_s) * kRate);
        if (early_s > 0) {
            ben.samples.insert(ben.samples.begin(), static_cast<std::size_t>(frames), 0.0);
        } else {
            ben.samples.erase(ben.samples.begin(), ben.samples.begin() + frames);
        }
        write_sound(dir_ / "plain.wav", ben, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
        const std::string filter = drifts ? "-af asetrate=16002,aresample=16000" : "";
        ASSERT_EQ(0, run_program("cd '" + dir_.path() + "' && ffmpeg -v error -y -i plain.wav " +
                                 filter + " -c:a pcm_s24le ben.wav")
                         .status);
        std::filesystem::remove(dir_ / "plain.wav");
    }

    TrackClock clock(const std::string& one, const std::string& other) const {
        return ClockFinder(dir_ / one).find(dir_ / other);
    }
};

TEST_F(Clocks, OffsetAndDriftAreFoundFromSpill) {
    struct Row {
        double early_s;
        bool drifts;
    };

    for (const Row& row : {Row{0.05, false}, {-47.5, true}, {58.0, false}}) {
        SCOPED_TRACE(row.early_s);
        write_tracks(row.early_s, row.drifts);
        const TrackClock found = clock("anna.wav", "ben.wav");
        // What was recorded early is also read too fast.
        const double speed = row.drifts ? 1 + kExactDrift_ppm * 1e-6 : 1;
        EXPECT_NEAR(row.early_s * speed, found.offset_s, 0.001);
        EXPECT_NEAR(row.drifts ? kExactDrift_ppm : 0, found.drift_ppm, 3);
        EXPECT_GT(found.certainty, 0.6);
        EXPECT_TRUE(differs(found, kSeconds));
    }
}

TEST_F(Clocks, TracksThatBeginTogetherAreNotMoved) {
    write_tracks(0, false);
    const TrackClock found = clock("anna.wav", "ben.wav");
    EXPECT_GT(found.certainty, 0.6);
    EXPECT_FALSE(differs(found, kSeconds));
    EXPECT_NEAR(0, found.offset_s, 0.001);
}

TEST_F(Clocks, NothingIsFoundWhereNothingIsShared) {
    write_tracks(3, false, 0);
    EXPECT_EQ(0, clock("anna.wav", "ben.wav").certainty);
    const ProgramResult result = run("--together --align anna.wav ben.wav");
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, HasSubstr("nothing that it shares with anna.wav was found"));
    EXPECT_EQ(kSeconds * kRate, read_sound(dir_ / "anna-leveled.wav").frames());
    EXPECT_EQ((kSeconds + 3) * kRate, read_sound(dir_ / "ben-leveled.wav").frames());
}

TEST_F(Clocks, AlignedTracksAndTheMixRunTogether) {
    write_tracks(12.34, true);
    const ProgramResult result = run("--together --align anna.wav ben.wav --mix talk.wav");
    ASSERT_EQ(0, result.status) << result.err;
    EXPECT_THAT(result.out, HasSubstr("s before that of anna.wav and runs"));
    const long long frames = read_sound(dir_ / "talk.wav").frames();
    EXPECT_LE(std::abs(frames - read_sound(dir_ / "anna-leveled.wav").frames()), 1);
    EXPECT_LE(std::abs(frames - read_sound(dir_ / "ben-leveled.wav").frames()), 1);
    EXPECT_NEAR(kSeconds + 12.34, static_cast<double>(frames) / kRate, 0.05);
    const TrackClock left = clock("anna-leveled.wav", "ben-leveled.wav");
    EXPECT_GT(left.certainty, 0);
    EXPECT_NEAR(0, left.offset_s, 0.01);
    EXPECT_NEAR(0, left.drift_ppm, 3);
    // Without --align a track keeps its length.
    ASSERT_EQ(0, run("-f --together anna.wav ben.wav").status);
    EXPECT_EQ(kSeconds * kRate, read_sound(dir_ / "anna-leveled.wav").frames());
}

}  // namespace
}  // namespace quorvane
