#include "leveling/findings/findings.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <limits>
#include <random>

#include "leveling/findings/profiler.h"
#include "tests/leveling/found.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::DoubleNear;
using testing::ElementsAre;

namespace quorvane {
namespace {

constexpr double kReadingOffset = 0.0038;  // of the reading's samples

/** f(sample, frame) of each sample. */
Signal changed(const Signal& from, const std::function<double(double, long long)>& f) {
    Signal signal = from;
    for (long long i = 0; i < from.frames(); ++i) {
        for (int c = 0; c < from.channels; ++c) {
            double& sample = signal.samples[static_cast<std::size_t>(i * from.channels + c)];
            sample = f(sample, i);
        }
    }
    return signal;
}

Signal louder(const Signal& from, double gain) {
    return changed(from, [=](double x, long long) { return gain * x; });
}

Signal with_noise(const Signal& from, double rms) {
    std::mt19937 random(1);
    // Uniform from -a to a: the mean square is a^2 / 3.
    const double width = rms * std::sqrt(3.0);
    return changed(from, [&](double x, long long) {
        return x + width * (2.0 * static_cast<double>(random()) / 4294967295.0 - 1.0);
    });
}

double sine_at(double frequency_hz, long long frame) {
    return std::sin(2 * M_PI * frequency_hz * static_cast<double>(frame) / kRate);
}

Signal with_hum(const Signal& from, double mains_hz, double amplitude) {
    return changed(from, [=](double x, long long i) {
        for (int harmonic = 1; harmonic <= 6; ++harmonic) {
            x += amplitude / harmonic * sine_at(harmonic * mains_hz, i);
        }
        return x;
    });
}

/** Noise through two low-passes of the first order, in gusts. */
Signal with_wind(const Signal& from, double rms) {
    std::mt19937 random(2);
    double one = 0;
    double two = 0;
    double squares = 0;
    std::vector<double> wind;
    for (long long i = 0; i < from.frames(); ++i) {
        constexpr double kShare = 0.006;  // 2 pi 15 Hz / 16 kHz
        one += kShare * (static_cast<double>(random()) / 4294967295.0 - 0.5 - one);
        two += kShare * (one - two);
        wind.push_back(two * (1 + sine_at(0.3, i)));
        squares += wind.back() * wind.back();
    }
    const double gain = rms / std::sqrt(squares / static_cast<double>(from.frames()));
    return changed(
        from, [&](double x, long long i) { return x + gain * wind[static_cast<std::size_t>(i)]; });
}

/** A chord of three notes with their overtones, another one every 0.6 s. */
Signal with_music(const Signal& from, double amplitude) {
    constexpr double kNotes[] = {220, 247, 262, 294, 330, 349, 392, 440, 494, 523};
    return changed(from, [=](double x, long long i) {
        const long long chord = i / (kRate * 6 / 10);
        for (const long long note : {chord * 3 % 10, (chord * 3 + 4) % 10, (chord * 3 + 7) % 10}) {
            for (int overtone = 1; overtone <= 4; ++overtone) {
                x += amplitude / (overtone * std::sqrt(overtone)) *
                     sine_at(overtone * kNotes[note], i);
            }
        }
        return x;
    });
}

/** A room after M. R. Schroeder, "Natural sounding artificial reverberation", JAES 10 (1962). */
Signal reverberant(const Signal& dry, double time_s) {
    // An echo of an offset would only add to it.
    const Signal from = changed(dry, [](double x, long long) { return x - kReadingOffset; });
    Signal signal = louder(from, 0);
    for (const std::size_t delay : {475U, 593U, 659U, 701U, 787U, 853U}) {
        std::vector<double> line(delay);
        const double feedback = std::pow(10, -3 * static_cast<double>(delay) / kRate / time_s);
        for (std::size_t i = 0; i < from.samples.size(); ++i) {
            double& echo = line[i % delay];
            signal.samples[i] += 0.2 * echo;
            echo = from.samples[i] + feedback * echo;
        }
    }
    for (const std::size_t delay : {81U, 27U}) {
        std::vector<double> line(delay);
        for (std::size_t i = 0; i < signal.samples.size(); ++i) {
            double& memory = line[i % delay];
            const double in = signal.samples[i] + 0.7 * memory;
            const double out = memory - 0.7 * in;
            memory = in;
            signal.samples[i] = out;
        }
    }
    return signal;
}

/** Calls f with frames inside loud words, at least half a second apart. */
Signal at_words(const Signal& from, const std::function<void(Signal&, std::size_t)>& f) {
    Signal signal = from;
    for (std::size_t i = kRate; i + kRate < signal.samples.size(); ++i) {
        if (std::abs(from.samples[i]) > 0.25) {
            f(signal, i);
            i += kRate / 2;
        }
    }
    return signal;
}

Signal clipped(const Signal& from, double gain, double level) {
    return changed(from,
                   [=](double x, long long) { return level * std::clamp(x * gain, -1.0, 1.0); });
}

Signal dropped() {
    return at_words(reading(), [](Signal& signal, std::size_t at) {
        std::fill_n(signal.samples.begin() + static_cast<std::ptrdiff_t>(at), kRate / 50, 0.0);
    });
}

/**
 * Turns of a voice and of another one so much below. Every second turn of its own is `farther`, the
 * gain of its owner who leans back.
 */
Signal guest_track(double spill, double farther) {
    const auto quarter = static_cast<std::ptrdiff_t>(reading().samples.size() / 4);
    std::vector<Signal> parts;
    for (int part = 0; part < 4; ++part) {
        const auto begin = reading().samples.begin() + part * quarter;
        const Signal own{kRate, 1, {begin, begin + quarter}};
        const double even = part < 2 ? 1 : 4;  // the reading's second half is 12 dB quieter
        parts.push_back(louder(own, part % 2 == 0 ? even : even * farther));
        parts.push_back(louder(own, even * spill));
    }
    return signals::join(parts);
}

Signal with_pause(long long seconds) {
    return signals::join(
        {reading(), with_noise(signals::silence(seconds * kRate, kRate), 1e-4), reading()});
}

/** 0.8 s of every 2 s say nothing, so that an echo is heard until it ends. */
Signal with_gaps() {
    return changed(reading(), [](double x, long long i) {
        return i % (2 * kRate) < kRate * 6 / 5 ? x : kReadingOffset;
    });
}

Signal with_offset(double offset) {
    return changed(reading(), [=](double x, long long) { return x + offset; });
}

Signal beside(double left, double right) {
    return signals::stereo(louder(reading(), left), louder(reading(), right));
}

struct Fault {
    const char* name;
    std::function<Signal()> make;
    const char* code;
    Severity severity;
    double value;  // about
    double accuracy;
    const char* detail;
};

void PrintTo(const Fault& fault, std::ostream* out) {
    *out << fault.name;
}

class Findings : public testing::TestWithParam<Fault> {};

TEST_P(Findings, AFaultIsTheOneFinding) {
    const Fault& fault = GetParam();
    const FileFacts facts = facts_of(fault.make());
    ASSERT_THAT(codes_of(facts), ElementsAre(fault.code));
    const Finding& finding = facts.findings[0];
    EXPECT_EQ(finding.severity, fault.severity);
    EXPECT_THAT(finding.value, DoubleNear(fault.value, fault.accuracy));
    EXPECT_EQ(finding.detail, fault.detail);
    EXPECT_LE(finding.places.size(), 20u);
    for (std::size_t i = 0; i < finding.places.size(); ++i) {
        EXPECT_LT(finding.places[i].from_s, finding.places[i].to_s);
        EXPECT_LE(i == 0 ? 0 : finding.places[i - 1].to_s, finding.places[i].from_s);
    }
}

constexpr auto kProblem = Severity::Problem;
constexpr auto kWarning = Severity::Warning;
constexpr auto kNote = Severity::Note;

// The reading's speech is at -26.8 dBFS, RMS 0.05.
INSTANTIATE_TEST_SUITE_P(
    All,
    Findings,
    testing::Values(
        Fault{"clipped", [] { return clipped(reading(), 10, 1); }, "clipped", kProblem, 3, 2.5, ""},
        Fault{"clipped for a moment",
              [] {
                  return signals::join({clipped(reading(), 3, 1), reading(), reading(), reading()});
              },
              "clipped", kNote, 0.0034, 0.0005, ""},
        Fault{"clipped a little", [] { return clipped(reading(), 3, 1); }, "clipped", kWarning,
              0.013, 0.002, ""},
        Fault{"clipped and lowered", [] { return clipped(reading(), 5, 0.3); }, "clipped", kProblem,
              0.6, 0.5, ""},
        Fault{"left only", [] { return beside(1, 0); }, "side-silent", kProblem, 100, 0, "right"},
        Fault{"right 14 dB up", [] { return beside(0.2, 1); }, "side-quiet", kWarning, 14, 0.1,
              "left"},
        Fault{"sides opposed", [] { return beside(1, -1); }, "out-of-phase", kProblem, 60, 0, ""},
        // 10 lg ((1 + 0.25) / 2 / ((1 - 0.5)^2 / 4)) = 10 dB.
        Fault{"sides half opposed", [] { return beside(1, -0.5); }, "out-of-phase", kProblem, 10,
              0.1, ""},
        // 10 lg ((1 + 0.09) / 2 / ((1 - 0.3)^2 / 4)) = 6.5 dB.
        Fault{"sides a third opposed", [] { return beside(1, -0.3); }, "out-of-phase", kWarning,
              6.5, 0.1, ""},
        // 20 lg 0.0063 = -44 dB, 20 lg 0.005 = -46 dB.
        Fault{"left 44 dB lower", [] { return beside(0.0063, 1); }, "side-quiet", kWarning, 44, 0.2,
              "left"},
        Fault{"left 46 dB lower", [] { return beside(0.005, 1); }, "side-silent", kProblem, 46, 0.2,
              "left"},
        Fault{"left 12.4 dB lower", [] { return beside(0.24, 1); }, "side-quiet", kWarning, 12.4,
              0.1, "left"},
        Fault{"offset", [] { return with_offset(0.05); }, "dc-offset", kWarning, 5, 0.5, ""},
        Fault{"a small offset", [] { return with_offset(0.02); }, "dc-offset", kNote, 2, 0.5, ""},
        Fault{"hum of Europe", [] { return with_hum(reading(), 50, 0.01); }, "hum", kWarning, -13.5,
              1.5, "50 Hz"},
        Fault{"hum of America", [] { return with_hum(reading(), 60, 0.004); }, "hum", kWarning, -21,
              2, "60 Hz"},
        Fault{"loud hum", [] { return with_hum(reading(), 50, 0.02); }, "hum", kProblem, -7.5, 1.5,
              "50 Hz"},
        Fault{"hiss", [] { return with_noise(reading(), 0.008); }, "noise", kWarning, 19, 1.5, ""},
        Fault{"loud hiss", [] { return with_noise(reading(), 0.016); }, "noise", kProblem, 11, 2.5,
              ""},
        Fault{"wind", [] { return with_wind(reading(), 0.05); }, "rumble", kWarning, -4, 4, ""},
        Fault{"a storm", [] { return with_wind(reading(), 0.09); }, "rumble", kProblem, 1.6, 1, ""},
        Fault{"a long pause", [] { return with_pause(20); }, "long-pauses", kNote, 0.33, 0.02, ""},
        Fault{"a pause of minutes", [] { return with_pause(200); }, "long-pauses", kWarning, 3.33,
              0.02, ""},
        Fault{"dropouts", dropped, "dropouts", kWarning, 7, 0, ""},
        Fault{"many dropouts",
              [] {
                  return signals::join({dropped(), dropped()});
              },
              "dropouts", kProblem, 14, 0, ""},
        Fault{"a guest's track", [] { return guest_track(0.04, 1); }, "spill", kWarning, 29, 1.5,
              ""},
        Fault{"a guest near and far", [] { return guest_track(0.04, 0.25); }, "spill", kWarning, 28,
              3, ""},
        Fault{"music", [] { return with_music(reading(), 0.004); }, "music-bed", kNote, -20, 5, ""},
        Fault{"a hall", [] { return reverberant(reading(), 1.0); }, "reverberant", kWarning, 1.0,
              0.2, ""},
        Fault{"a church", [] { return reverberant(with_gaps(), 1.6); }, "reverberant", kProblem,
              1.5, 0.2, ""}));

/** Between the samples, by the sinc of 8 to each side under a window of J. von Hann. */
Signal faster(const Signal& from, int times) {
    Signal signal{from.sample_rate_hz * times, 1, {}};
    constexpr long long kReach = 8;
    for (long long i = 0; i < from.frames() * times; ++i) {
        double sum = 0;
        for (long long k = i / times - kReach; k <= i / times + kReach; ++k) {
            const double away = static_cast<double>(i) / times - static_cast<double>(k);
            if (k >= 0 && k < from.frames() && std::abs(away) < kReach) {
                const double sinc = away == 0 ? 1 : std::sin(M_PI * away) / (M_PI * away);
                sum += from.samples[static_cast<std::size_t>(k)] * sinc *
                       (0.5 + 0.5 * std::cos(M_PI * away / kReach));
            }
        }
        signal.samples.push_back(sum);
    }
    return signal;
}

Signal through_file(const Signal& from, const char* name, int format) {
    const TempDir dir;
    write_sound(dir / name, from, format);
    return read_sound(dir / name);
}

TEST(FindingsOfCleanRecordings, AreNone) {
    const Signal half = [] {  // 8 kHz
        Signal signal{kRate / 2, 1, {}};
        std::vector<float> in(reading().samples.begin(), reading().samples.end());
        std::vector<float> out;
        HalfRate().process(in.data(), in.size(), out);
        signal.samples.assign(out.begin(), out.end());
        return signal;
    }();
    const Signal sentences{
        kRate, 1, {reading().samples.begin(), reading().samples.begin() + 11 * kRate}};
    const Signal twice = faster(sentences, 2);
    const std::pair<const char*, Signal> rows[] = {
        {"as it is", reading()},
        {"8 kHz", half},
        {"32 kHz", twice},
        {"96 kHz", faster(twice, 3)},
        {"20 dB lower", louder(reading(), 0.1)},
        {"2.2 times as loud", louder(reading(), 2.2)},
        {"stereo", beside(0.8, 0.8)},
        {"11.7 dB to the left", beside(1, 0.26)},
        {"sides a quarter opposed", beside(1, -0.26)},
        {"a quiet second half",
         changed(reading(), [](double x, long long i) { return i > 12 * kRate ? x / 4 : x; })},
        {"8 bits", through_file(louder(reading(), 2), "x.wav", SF_FORMAT_WAV | SF_FORMAT_ULAW)},
        {"Vorbis", through_file(reading(), "x.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS)},
        {"24 bits", through_file(reading(), "x.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_24)},
    };
    for (const auto& [name, signal] : rows) {
        SCOPED_TRACE(name);
        EXPECT_THAT(codes_of(facts_of(signal)), ElementsAre());
    }
}

TEST(FindingsOfParts, AreThoseOfTheWhole) {
    const Signal whole = clipped(reading(), 8, 1);
    const std::size_t middle = 120 * kRate / 10;
    const std::vector<float> samples(whole.samples.begin(), whole.samples.end());
    Profiler first;
    Profiler second;
    first.begin(1, kRate);
    first.add(samples.data(), middle);
    second.begin(1, kRate);
    second.add(samples.data() + middle, samples.size() - middle);
    SoundProfile together = first.profile();
    together.append(second.profile());
    FileFacts parts;
    add_findings(together, parts);
    const FileFacts known = facts_of(whole, 333);
    ASSERT_EQ(codes_of(parts), codes_of(known));
    EXPECT_EQ(parts.findings[0].value, known.findings[0].value);
    EXPECT_EQ(parts.findings[0].places.size(), known.findings[0].places.size());
}

TEST(FindingsOfSamplesThatAreNoNumbers, AreHarmless) {
    Signal signal = reading();
    signal.samples[kRate] = std::nan("");
    signal.samples[3 * kRate] = std::numeric_limits<double>::infinity();
    EXPECT_THAT(codes_of(facts_of(signal)), ElementsAre());
}

}  // namespace
}  // namespace quorvane
