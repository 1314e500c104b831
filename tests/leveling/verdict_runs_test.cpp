#include <gmock/gmock.h>

#include <cmath>
#include <functional>

#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::HasSubstr;
using testing::Not;

/*
 * What the program says of recordings that people have: the first line is what they trust, so it is
 * compared as a whole where it must not hold an objection.
 */

namespace {

constexpr int kRate = 16000;

const Signal& reading() {
    static const Signal signal = read_sound(std::string(RECORDINGS) + "/reading_16k_mono.flac");
    return signal;
}

using Change = std::function<double(double, long long)>;

Signal changed(const Change& change) {
    Signal signal = reading();
    for (std::size_t i = 0; i < signal.samples.size(); ++i) {
        signal.samples[i] = change(signal.samples[i], static_cast<long long>(i));
    }
    return signal;
}

Signal part(double from_s, double to_s, double gain = 1) {
    const auto begin = reading().samples.begin();
    Signal signal{
        kRate, 1, {begin + std::lround(from_s * kRate), begin + std::lround(to_s * kRate)}};
    for (double& sample : signal.samples) {
        sample *= gain;
    }
    return signal;
}

double tones(long long frame, const std::vector<double>& frequencies_hz) {
    double sum = 0;
    for (const double frequency_hz : frequencies_hz) {
        sum += std::sin(2 * M_PI * frequency_hz * static_cast<double>(frame) / kRate);
    }
    return sum;
}

/** A microphone that hears its own voice and another one, 28 dB lower, in turns. */
Signal guest_track() {
    std::vector<Signal> parts;
    for (int turn = 0; turn < 8; ++turn) {
        const double from_s = turn / 2 * 5.9;
        // The second half of the reading is 12 dB quieter than the first.
        const double gain = turn < 4 ? 1 : 4;
        parts.push_back(part(from_s, from_s + 5.9, turn % 2 == 0 ? gain : 0.04 * gain));
    }
    return signals::join(parts);
}

/** The reading's first quarter, four times: a voice that keeps its distance. */
Signal even_voice() {
    return signals::join({part(0, 5.5), part(0, 5.5), part(0, 5.5), part(0, 5.5)});
}

Signal of_channels(int channels) {
    Signal signal{kRate, channels, {}};
    for (const double sample : reading().samples) {
        signal.samples.insert(signal.samples.end(), static_cast<std::size_t>(channels), sample);
    }
    return signal;
}

struct Case {
    const char* name;
    std::function<Signal()> make;
    const char* ending;  // of the first line
    const char* absent;  // from all that is said; may be empty
    int status;
    int strict_status;
    const char* then = "true";  // makes the file of in.wav, "true": it is in.wav itself
    const char* file = "in.wav";
};

void PrintTo(const Case& row, std::ostream* out) {
    *out << row.name;
}

class Verdict : public testing::TestWithParam<Case> {};

TEST_P(Verdict, SaysWhatAnEngineerWouldSay) {
    const Case& row = GetParam();
    const TempDir dir;
    write_sound(dir / "in.wav", row.make(), SF_FORMAT_WAV | SF_FORMAT_PCM_24);
    const std::string in_dir = "cd " + dir.path() + " && ";
    ASSERT_EQ(run_program(in_dir + row.then).status, 0);
    const ProgramResult result =
        run_program(in_dir + QUORVANE " --for podcast " + row.file + " 2>&1");
    EXPECT_EQ(result.status, row.status) << result.out;
    const std::string first = result.out.substr(0, result.out.find('\n'));
    EXPECT_THAT(first, testing::ContainsRegex(std::string(row.ending) + "$"));
    if (*row.absent) {
        EXPECT_THAT(result.out, Not(HasSubstr(row.absent)));
    }
    EXPECT_EQ(run_program(in_dir + QUORVANE " --for podcast --strict --force " + row.file).status,
              row.strict_status);
}

INSTANTIATE_TEST_SUITE_P(
    All,
    Verdict,
    testing::Values(
        Case{"good", reading, "[0-9] dB. Ready for podcast\\.", "but", 0, 0},
        Case{"clipped",
             [] {
                 return changed(
                     [](double x, long long) { return std::fmax(-.9, std::fmin(.9, 10 * x)); });
             },
             "Ready for podcast, but: [0-9.]+ % of the recording is clipped\\.", "", 0, 4},
        Case{
            "left only",
            [] { return signals::stereo(reading(), changed([](double, long long) { return 0; })); },
            "Ready for podcast, but: the right side is silent\\.", "", 0, 4},
        Case{"out of phase",
             [] {
                 return signals::stereo(reading(), changed([](double x, long long) { return -x; }));
             },
             "Ready for podcast, but: the sides are out of phase; in mono 60 dB are lost\\.", "", 0,
             4},
        Case{"0.2 s", [] { return part(1, 1.2); },
             "^Not ready for podcast: too short to measure: needs 0.4 s\\.", "even", 4, 4},
        Case{"1 s", [] { return part(1, 2); },
             "Ready for podcast, but: the speech is only [01].[0-9] s long\\.", "noise", 0, 0},
        Case{"a guest's track", guest_track,
             "Ready for podcast, but: another voice seems to spill in, [0-9.]+ dB under the main "
             "one\\.",
             "", 0, 0},
        Case{"six channels", [] { return of_channels(6); }, "Ready for podcast\\.", "failed", 0, 0},
        Case{"very quiet", [] { return part(0, 23, 0.01); },
             "Ready for podcast, but: it was so quiet that it was raised by [0-9.]+ dB\\.",
             "before leveling", 0, 0},
        Case{"hum",
             [] {
                 return changed([](double x, long long i) {
                     return x + 0.02 * tones(i, {50, 100, 150});
                 });
             },
             "Ready for podcast, but: mains hum \\(50 Hz\\) is [0-9.]+ dB under the speech\\.",
             "its background", 0, 4},
        Case{"music",
             [] {
                 return changed([](double x, long long i) {
                     return x + 0.004 * tones(i, {220, 277.2, 329.6, 440, 554.4, 659.3});
                 });
             },
             "Ready for podcast\\.", "its background", 0, 0},
        Case{"even", even_voice, "Ready for podcast\\.", "but", 0, 0},
        Case{"24 kbit/s", reading,
             "Ready for podcast, but: its sound is stored at only 24 kbit/s\\.", "", 0, 0,
             "ffmpeg -v error -i in.wav -b:a 24k in.mp3", "in.mp3"},
        Case{"damaged", reading, "Ready for podcast, but: .*% of the sound is missing.*", "", 0, 1,
             "ffmpeg -v error -i in.wav -b:a 64k in.mp3 && "
             "dd if=/dev/zero of=in.mp3 bs=1000 seek=90 count=5 conv=notrunc 2>/dev/null",
             "in.mp3"}));

}  // namespace
