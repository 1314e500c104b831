#include "leveling/audio/true_peak.h"

#include <ebur128.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

namespace {

/** libebur128's own answer, every frame interpolated. */
double interpolate_everything(const std::vector<float>& samples, int channels, int rate) {
    ebur128_state* meter = ebur128_init(static_cast<unsigned>(channels),
                                        static_cast<unsigned long>(rate), EBUR128_MODE_TRUE_PEAK);
    ebur128_add_frames_float(meter, samples.data(),
                             samples.size() / static_cast<std::size_t>(channels));
    double peak = 0;
    for (int channel = 0; channel < channels; ++channel) {
        double of_channel = 0;
        ebur128_true_peak(meter, static_cast<unsigned>(channel), &of_channel);
        peak = std::max(peak, of_channel);
    }
    ebur128_destroy(&meter);
    return peak;
}

TEST(TruePeak, SkippingPiecesGivesWhatInterpolatingEverythingGives) {
    std::mt19937 random(2);
    std::normal_distribution<float> noise;
    for (const int rate : {8000, 44100, 48000, 96000, 192000}) {
        for (const int channels : {1, 2}) {
            for (int round = 0; round < 12; ++round) {
                // Bursts of noise; the loudest sample is a click at a place of its own.
                std::vector<float> samples(static_cast<std::size_t>(channels) * 9000);
                float level = 0;
                for (std::size_t i = 0; i < samples.size(); ++i) {
                    if (i % 700 == 0) {
                        level = static_cast<float>(random() % 100) / 400;
                    }
                    samples[i] = level * noise(random);
                }
                samples[random() % samples.size()] = 0.9F;
                SCOPED_TRACE(testing::Message() << rate << " Hz, round " << round);
                quorvane::TruePeakMeter meter(channels, rate);
                for (std::size_t done = 0; done < 9000;) {
                    const std::size_t frames = std::min<std::size_t>(9000 - done, random() % 999);
                    meter.add(samples.data() + done * static_cast<std::size_t>(channels), frames);
                    done += frames;
                }
                // Sums of single precision in another order.
                EXPECT_NEAR(interpolate_everything(samples, channels, rate), meter.true_peak(),
                            1e-6);
            }
        }
    }
}

TEST(TruePeak, LiesBetweenSamplesThatMissThePeakOfASine) {
    // A quarter of the sample rate, an eighth of a period off: every sample is sqrt(1/2) of it.
    std::vector<float> sine(4800);
    for (std::size_t i = 0; i < sine.size(); ++i) {
        sine[i] = static_cast<float>(0.5 * std::sin(M_PI / 2 * static_cast<double>(i) + M_PI / 4));
    }
    quorvane::TruePeakMeter meter(1, 48000);
    meter.add(sine.data(), sine.size());
    EXPECT_NEAR(0.5 * std::sqrt(0.5), meter.sample_peak(), 1e-6);
    EXPECT_NEAR(0.5, meter.true_peak(), 0.02);
}

}  // namespace
