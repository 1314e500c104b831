#include "leveling/audio/loudness_meter.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <vector>

#include "leveling/audio/channel_places.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

namespace quorvane {
namespace {

struct Close {
    void operator()(ebur128_state* state) const { ebur128_destroy(&state); }
};

/** The judge: libebur128, which knows nothing of stretches between cuts. */
class Library {
  public:
    explicit Library(const Signal& signal)
        : state_(ebur128_init(static_cast<unsigned>(signal.channels),
                              static_cast<unsigned long>(signal.sample_rate_hz),
                              EBUR128_MODE_I | EBUR128_MODE_LRA | EBUR128_MODE_S)) {}

    double integrated() const { return ask(ebur128_loudness_global); }

    double range() const { return ask(ebur128_loudness_range); }

    /** Of the last so many ms before frame `end`; ends ascend from call to call. */
    double window(const Signal& signal, std::int64_t end, unsigned long ms) {
        add(signal, end);
        double result = 0;
        ebur128_loudness_window(state_.get(), ms, &result);
        return result;
    }

    void add(const Signal& signal, std::int64_t end) {
        ebur128_add_frames_double(state_.get(), signal.samples.data() + done_ * signal.channels,
                                  static_cast<std::size_t>(end - done_));
        done_ = end;
    }

  private:
    double ask(int (*what)(ebur128_state*, double*)) const {
        double result = 0;
        what(state_.get(), &result);
        return result;
    }

    std::unique_ptr<ebur128_state, Close> state_;
    std::int64_t done_ = 0;
};

void expect_level(double expected, double found) {
    // What the filters ring with in digital silence, far below 24 bits, is of rounding alone.
    constexpr double kRinging = -150;
    if (expected < kRinging) {
        EXPECT_LT(found, kRinging + 1);
    } else if (std::isfinite(expected)) {
        EXPECT_NEAR(expected, found, 1e-6);
    } else {
        EXPECT_EQ(expected, found);
    }
}

/** Level steps of noise with hum and pauses, each channel its own. */
Signal recording(double seconds, int rate, int channels, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<double> noise;
    double level = 0;
    return {rate, channels, [&] {
                std::vector<double> samples;
                const auto count =
                    static_cast<std::size_t>(seconds * rate) * static_cast<std::size_t>(channels);
                for (std::size_t i = 0; i < count; ++i) {
                    if (i % static_cast<std::size_t>(rate) == 0) {
                        level = random() % 4 == 0 ? 0 : std::pow(10, -double(random() % 60) / 20);
                    }
                    const double sample = 0.1 * noise(random) + 0.2 * std::sin(double(i) / 40);
                    samples.push_back(static_cast<double>(static_cast<float>(level * sample)));
                }
                return samples;
            }()};
}

void compare(const Signal& signal, unsigned seed) {
    std::mt19937 random(seed);

    struct Window {
        std::int64_t end;
        unsigned long ms;
    };

    std::vector<Window> windows;
    std::vector<std::int64_t> cuts;
    const auto frames = static_cast<std::int64_t>(signal.frames());
    const auto length = [&](const Window& window) {
        return static_cast<std::int64_t>(window.ms) * signal.sample_rate_hz / 1000;
    };
    for (std::int64_t end = 0; (end += 1 + random() % 20011) < frames;) {
        const Window window{end, 1 + random() % 3000};
        if (length(window) <= end) {
            windows.push_back(window);
            cuts.push_back(end);
            cuts.push_back(end - length(window));
        }
    }
    std::sort(cuts.begin(), cuts.end());
    cuts.erase(std::unique(cuts.begin(), cuts.end()), cuts.end());

    const std::vector<float> floats(signal.samples.begin(), signal.samples.end());
    const auto at = [&](std::int64_t frame) { return floats.data() + frame * signal.channels; };
    LoudnessMeter in_pieces(signal.channels, signal.sample_rate_hz, cuts);
    for (std::int64_t done = 0; done < frames;) {
        const std::int64_t here = std::min<std::int64_t>(frames - done, random() % 30011);
        in_pieces.add(signal.samples.data() + done * signal.channels,
                      static_cast<std::size_t>(here));
        done += here;
    }
    LoudnessMeter at_once(signal.channels, signal.sample_rate_hz, cuts);
    at_once.add(floats.data(), floats.size() / static_cast<std::size_t>(signal.channels));
    const std::int64_t part = random() % frames;
    const std::int64_t settling = std::min<std::int64_t>(part, signal.sample_rate_hz / 4);
    LoudnessMeter in_parts(signal.channels, signal.sample_rate_hz, cuts);
    in_parts.add(floats.data(), static_cast<std::size_t>(part));
    LoudnessMeter rest(signal.channels, signal.sample_rate_hz, cuts, part);
    rest.settle(at(part - settling), static_cast<std::size_t>(settling));
    rest.add(at(part), static_cast<std::size_t>(frames - part));
    in_parts.append(rest);

    Library library(signal);
    for (const Window& window : windows) {
        SCOPED_TRACE(testing::Message() << window.ms << " ms before frame " << window.end);
        const double expected = library.window(signal, window.end, window.ms);
        for (const LoudnessMeter* meter : {&in_pieces, &at_once, &in_parts}) {
            expect_level(expected, meter->window_lufs(window.end - length(window), window.end));
        }
    }
    library.add(signal, frames);
    for (const LoudnessMeter* meter : {&in_pieces, &at_once, &in_parts}) {
        expect_level(library.integrated(), meter->integrated_lufs());
        EXPECT_NEAR(library.range(), meter->range_lu(), 1e-6);
    }
}

TEST(LoudnessMeter, AgreesWithTheLibraryAtEveryRateAndLength) {
    unsigned seed = 1;
    for (const int rate : {8000, 11025, 22050, 44100, 48000, 96000, 192000}) {
        for (const int channels : {1, 2, 3, 4, 5, 6}) {
            for (const double seconds : {0.02, 0.39, 3.1, 13.0}) {
                if (channels > 2 && rate > 48000) {
                    continue;
                }
                SCOPED_TRACE(testing::Message()
                             << seconds << " s, " << rate << " Hz, " << channels << " channels");
                ++seed;
                compare(recording(seconds, rate, channels, seed), seed);
            }
        }
    }
    compare(signals::silence(100000, 44100, 2), 3);
    compare(read_sound(RECORDINGS "/reading_16k_mono.flac"), 4);
}

// ITU-R BS.1770-4, tables 1 and 2.
TEST(LoudnessMeter, WeighsTheChannelsOfSevenPointOne) {
    // WAV's order: left, right, centre, LFE, both at 135 degrees, both at 90.
    const Signal signal = recording(20, 48000, 8, 3);
    constexpr int kPlaces[] = {EBUR128_LEFT,  EBUR128_RIGHT, EBUR128_CENTER, EBUR128_UNUSED,
                               EBUR128_Mp135, EBUR128_Mm135, EBUR128_Mp090,  EBUR128_Mm090};
    ebur128_state* state = ebur128_init(8, 48000, EBUR128_MODE_I);
    for (unsigned channel = 0; channel < std::size(kPlaces); ++channel) {
        ebur128_set_channel(state, channel, kPlaces[channel]);
    }
    ebur128_add_frames_double(state, signal.samples.data(),
                              static_cast<std::size_t>(signal.frames()));
    double expected = 0;
    ebur128_loudness_global(state, &expected);
    ebur128_destroy(&state);
    TempDir dir;
    {
        int places[] = {SF_CHANNEL_MAP_LEFT,      SF_CHANNEL_MAP_RIGHT,
                        SF_CHANNEL_MAP_CENTER,    SF_CHANNEL_MAP_LFE,
                        SF_CHANNEL_MAP_REAR_LEFT, SF_CHANNEL_MAP_REAR_RIGHT,
                        SF_CHANNEL_MAP_SIDE_LEFT, SF_CHANNEL_MAP_SIDE_RIGHT};
        SndfileHandle out(dir / "a.wav", SFM_WRITE, SF_FORMAT_WAVEX | SF_FORMAT_DOUBLE, 8, 48000);
        ASSERT_TRUE(out.command(SFC_SET_CHANNEL_MAP_INFO, places, sizeof places));
        out.writef(signal.samples.data(), signal.frames());
    }
    SndfileHandle file(dir / "a.wav");
    const std::vector<double> weights = loudness_weights(file);
    EXPECT_EQ((std::vector<double>{1, 1, 1, 0, 1, 1, 1.41, 1.41}), weights);
    LoudnessMeter meter(8, 48000, {}, 0, weights);
    meter.add(signal.samples.data(), static_cast<std::size_t>(signal.frames()));
    EXPECT_NEAR(expected, meter.integrated_lufs(), 1e-6);
}

TEST(KWeighting, HasThePrintedCoefficientsAt48kHz) {
    const KWeighting::Biquad shelf = KWeighting::shelf(48000);
    EXPECT_NEAR(1.53512485958697, shelf.b0, 1e-14);
    EXPECT_NEAR(-2.69169618940638, shelf.b1, 1e-14);
    EXPECT_NEAR(1.19839281085285, shelf.b2, 1e-14);
    EXPECT_NEAR(-1.69065929318241, shelf.a1, 1e-14);
    EXPECT_NEAR(0.73248077421585, shelf.a2, 1e-14);
    const KWeighting::Biquad high_pass = KWeighting::high_pass(48000);
    EXPECT_NEAR(-1.99004745483398, high_pass.a1, 1e-14);
    EXPECT_NEAR(0.99007225036621, high_pass.a2, 1e-14);
}

// Sound that fades for minutes must neither slow the filters down nor leave a level.
TEST(LoudnessMeter, SilenceAfterSoundIsSilence) {
    LoudnessMeter meter(1, 8000, {8000 * 9, 8000 * 10});
    const Signal tone = signals::sine(0.5, 1000, 1, 8000);
    meter.add(tone.samples.data(), tone.samples.size());
    const std::vector<double> silence(8000);
    for (int second = 1; second < 10; ++second) {
        meter.add(silence.data(), silence.size());
    }
    EXPECT_EQ(-INFINITY, meter.window_lufs(8000 * 9, 8000 * 10));
}

}  // namespace
}  // namespace quorvane
