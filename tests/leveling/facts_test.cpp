#include <fmt/format.h>
#include <gmock/gmock.h>

#include <cmath>
#include <filesystem>

#include "leveling/audio/loudness_meter.h"
#include "leveling/audio/measure.h"
#include "leveling/engine/passages.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/facts_list.h"
#include "leveling/facts/run_facts.h"
#include "leveling/publish/verdict.h"
#include "leveling/report/heard.h"
#include "leveling/report/report.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::DoubleNear;
using testing::HasSubstr;
using testing::Lt;

namespace quorvane {
namespace {

constexpr double kSilence = -std::numeric_limits<double>::infinity();

Loudness measured(const Signal& signal) {
    const TempDir dir;
    write_sound(dir / "x.wav", signal, kWavFloat);
    return measure(dir / "x.wav", [](double) {}).loudness;
}

TEST(Measure, ASineHasItsKnownLoudness) {
    // EBU Tech 3341, case 1: stereo sine of 1 kHz with peaks at -23 dBFS measures -23 LUFS.
    const double amplitude = std::pow(10, -23 / 20.0);
    const Loudness stereo = measured(signals::sine(amplitude, 1000, 20, 48000, 2));
    EXPECT_THAT(stereo.integrated_lufs, DoubleNear(-23.0, 0.1));
    EXPECT_THAT(stereo.range_lu, DoubleNear(0, 0.1));
    EXPECT_THAT(stereo.true_peak_dbtp, DoubleNear(-23.0, 0.2));
    EXPECT_THAT(stereo.sample_peak_dbfs, DoubleNear(-23.0, 0.01));
    // A sine's RMS lies 3.01 dB below its peak.
    EXPECT_THAT(stereo.rms_dbfs, DoubleNear(-26.01, 0.01));
    EXPECT_THAT(stereo.pauses_dbfs, DoubleNear(-26.01, 0.01));
    // One channel has half the power: 3.01 LU less.
    EXPECT_THAT(measured(signals::sine(amplitude, 1000, 20, 48000, 1)).integrated_lufs,
                DoubleNear(-26.01, 0.1));
}

TEST(Measure, TheCurveFollowsTheSoundAtItsTime) {
    const Loudness loudness = measured(
        signals::join({signals::sine(0.01, 1000, 10, 48000), signals::sine(0.5, 1000, 10, 48000)}));
    const Curve& curve = loudness.short_term_lufs;
    ASSERT_THAT(curve.step_s, DoubleNear(0.1, 1e-9));
    ASSERT_EQ(curve.values.size(), 201u);
    const auto at = [&](double seconds) {
        return curve.values[static_cast<std::size_t>(seconds / curve.step_s)];
    };
    // 20 log10(0.01) - 3.01 = -43.0; 20 log10(0.5) - 3.01 = -9.0. Windows of 3 s are centred, so
    // the change begins 1.5 s before it.
    EXPECT_THAT(at(0.0), DoubleNear(-43.0, 0.2));
    EXPECT_THAT(at(8.3), DoubleNear(-43.0, 0.2));
    EXPECT_THAT(at(10.0), DoubleNear(-9.0 - 3.0, 0.3));
    EXPECT_THAT(at(11.7), DoubleNear(-9.0, 0.2));
    EXPECT_THAT(curve.values.back(), DoubleNear(-9.0, 0.2));
    EXPECT_THAT(loudness.pauses_dbfs, DoubleNear(-43.0, 0.1));
}

TEST(Measure, SilenceAndShortFilesAreMeasured) {
    EXPECT_EQ(measured(signals::silence(48000, 48000)).integrated_lufs, kSilence);
    EXPECT_EQ(measured(signals::silence(48000, 48000)).true_peak_dbtp, kSilence);
    EXPECT_THAT(measured(signals::sine(0.5, 1000, 0.01, 48000)).rms_dbfs, DoubleNear(-9.03, 0.01));
    EXPECT_THROW(measure("/no/such.wav", [](double) {}), std::runtime_error);
}

// Files of more than half a minute are measured in two halves, here in the middle of the sound.
TEST(Measure, HalvesGiveTheWholeOneAfterTheOtherAndSideBySide) {
    for (const int channels : {1, 2}) {
        Signal signal = signals::join({signals::silence(17 * 16000, 16000, channels),
                                       signals::sine(0.5, 1000, 8, 16000, channels),
                                       signals::silence(16 * 16000 + 7, 16000, channels)});
        signal.samples[static_cast<std::size_t>(22 * 16000 * channels)] = 0.75;
        const TempDir dir;
        const std::string file = dir / "x.wav";
        write_sound(file, signal, kWavFloat);
        const Measurement whole = measure(file, [](double) {});
        EXPECT_THAT(whole.loudness.head_s, DoubleNear(17.0, 1e-9));
        EXPECT_THAT(whole.loudness.tail_s, DoubleNear(16.0, 1e-9));
        EXPECT_THAT(whole.loudness.sample_peak_dbfs, DoubleNear(20 * std::log10(0.75), 1e-6));
        EXPECT_GE(whole.loudness.true_peak_dbtp, whole.loudness.sample_peak_dbfs);
        LoudnessMeter plain(channels, 16000);
        plain.add(signal.samples.data(),
                  signal.samples.size() / static_cast<std::size_t>(channels));
        EXPECT_THAT(whole.loudness.integrated_lufs, DoubleNear(plain.integrated_lufs(), 1e-6));
        EXPECT_EQ(whole.scan.frames, 41 * 16000 + 7);
        EXPECT_THAT(whole.scan.peak, DoubleNear(0.75, 1e-9));
        for (const CallerThread caller : {CallerThread::kBusy, CallerThread::kWaiting}) {
            const Measurement again = measure_meanwhile(file, caller).get();
            EXPECT_EQ(again.loudness.integrated_lufs, whole.loudness.integrated_lufs);
            EXPECT_EQ(again.loudness.rms_dbfs, whole.loudness.rms_dbfs);
            EXPECT_EQ(again.loudness.short_term_lufs.values, whole.loudness.short_term_lufs.values);
        }
    }
}

TEST(Passages, WhatTheEngineFoundIsShownInSecondsAndDecibels) {
    const LevelPassage passages[] = {
        {0, 1600, -20.0, 0.5}, {1600, 4000, kLevelSilence_db, 1.0}, {4000, 4400, -30.0, 2.0}};
    const double gains[] = {0.5, 0.5, 1.0, 1.0, 1.0, 2.0};
    LevelFindings found{};
    found.sample_rate_hz = 16000;
    found.passages = passages;
    found.passage_count = 3;
    EXPECT_FALSE(leveling_of(found)) << "the run is not complete";
    found.bin_s = 0.05;
    found.gains = gains;
    found.gain_count = 6;
    const auto leveling = leveling_of(found);
    ASSERT_TRUE(leveling);
    ASSERT_EQ(3u, leveling->passages.size());
    EXPECT_THAT(leveling->passages[1].from_s, DoubleNear(0.1, 1e-9));
    EXPECT_THAT(leveling->passages[1].to_s, DoubleNear(0.25, 1e-9));
    EXPECT_EQ(leveling->passages[1].level_db, kSilence);
    EXPECT_THAT(leveling->passages[2].to_s, DoubleNear(0.275, 1e-9));
    EXPECT_THAT(leveling->passages[2].gain_db, DoubleNear(6.02, 0.01));
    EXPECT_THAT(leveling->least_gain_db, DoubleNear(-6.02, 0.01));
    EXPECT_THAT(leveling->greatest_gain_db, DoubleNear(6.02, 0.01));
    // (2 * -6.02 + 3 * 0 + 6.02) / 6
    EXPECT_THAT(leveling->mean_gain_db, DoubleNear(-1.003, 0.01));
}

Loudness loudness(double lufs, double true_peak, double rms, double pauses) {
    Loudness result;
    result.integrated_lufs = lufs;
    result.true_peak_dbtp = true_peak;
    result.sample_peak_dbfs = true_peak;
    result.rms_dbfs = rms;
    result.pauses_dbfs = pauses;
    result.head_s = 0.5;
    result.tail_s = 5;
    return result;
}

TEST(Destinations, EachIsMetOrNamesHowFarOff) {
    const char* const words[] = {"podcast", "spotify", "youtube", "broadcast", "atsc", "audiobook"};

    struct Row {
        Loudness loudness;
        std::vector<std::string> misses;  // by the places above, for two channels
    };

    const Row rows[] = {
        {loudness(-16.6, -1.0, -17, -61),
         {"0.1 LU too quiet", "2.1 LU too quiet", "2.1 LU too quiet", "6.2 LU too loud",
          "6.9 LU too loud, true peak 1.0 dB too high", "1.0 dB too loud, peak 2.0 dB too high"}},
        {loudness(-14.5, -3.0, -20, -55),
         {"1.0 LU too loud", "", "", "8.3 LU too loud", "9.0 LU too loud",
          "noise floor 5.0 dB too high"}},
        {loudness(-23.5, -0.97, -23, -60),
         {"7.0 LU too quiet, true peak 0.1 dB too high",
          "9.0 LU too quiet, true peak 0.1 dB too high",
          "9.0 LU too quiet, true peak 0.1 dB too high",
          "0.3 LU too quiet, true peak 0.1 dB too high", "true peak 1.0 dB too high",
          "peak 2.0 dB too high"}},
        {loudness(-23.2, -0.981, -23.4, -70),
         {"6.7 LU too quiet", "8.7 LU too quiet", "8.7 LU too quiet", "",
          "0.3 LU too loud, true peak 1.0 dB too high", "0.4 dB too quiet, peak 2.0 dB too high"}},
        {loudness(kSilence, kSilence, kSilence, kSilence),
         {"silent", "silent", "silent", "silent", "silent", "silent"}},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.loudness.integrated_lufs);
        std::vector<std::string> misses;
        for (const char* word : words) {
            misses.push_back(check_destination(*find_destination(word), row.loudness, 2).words());
        }
        EXPECT_EQ(row.misses, misses);
    }
    const Destination apple = *find_destination("apple");
    EXPECT_TRUE(check_destination(apple, loudness(-19.5, -2, -20, -50), 1).met());
    EXPECT_EQ("−19 LUFS ±0.5, true peak up to −1 dBTP", apple.asks(1));
    EXPECT_FALSE(find_destination("pod").has_value());
}

/** An hour as long as the curves of a real one. */
FileFacts an_hour() {
    FileFacts facts;
    facts.input = "season/<b>\"1\" & '2'.wav";
    facts.output = "out/x.wav";
    facts.outcome = Outcome::Leveled;
    facts.format = "WAV, PCM";
    facts.sample_rate_hz = 44100;
    facts.channels = 2;
    facts.frames = 3600LL * 44100;
    facts.before = loudness(-27.4, -7.5, -28, -70);
    facts.before->short_term_lufs = {3.6, std::vector<double>(1000, -27.123)};
    facts.before->short_term_lufs.values[500] = kSilence;
    facts.after = loudness(-18.4, -1, -19, -66);
    facts.after->short_term_lufs = {3.6, std::vector<double>(1000, -18.456)};
    facts.leveling.emplace();
    facts.leveling->gain_db = {3.0, std::vector<double>(1200, 1.5)};
    for (int i = 0; i < 900; ++i) {
        facts.leveling->passages.push_back({i * 4.0, i * 4.0 + 4, -20.0 - i % 10, i % 20 - 10.0});
    }
    return facts;
}

TEST(Facts, JsonGivesThemBack) {
    FileFacts facts = an_hour();
    facts.notes = {"a note"};
    facts.cause = "why \xff not";
    facts.speech =
        SpeechLevels{SpeechState::Measured, 12.5, 1, {{1, 2, -30, kSilence}}, 0, kSilence};
    facts.findings = {{"hum", Severity::Warning, 12.3, "dB", {{0.5, 2}}, "50 Hz"}};
    const FileFacts back = facts_from_json(nlohmann::ordered_json::parse(dump(to_json(facts))));
    EXPECT_EQ(dump(to_json(back)), dump(to_json(facts)));
    EXPECT_EQ(back.before->short_term_lufs.values[500], kSilence);
    ASSERT_EQ(back.findings.size(), 1u);
    EXPECT_EQ(back.findings[0].severity, Severity::Warning);
    EXPECT_EQ(back.speech->passages[0].after_db, kSilence);
    EXPECT_EQ(facts_from_json(to_json(FileFacts{})).before, std::nullopt);
}

TEST(Facts, WhatNoRunHasWrittenIsRefused) {
    FileFacts facts;
    facts.input = "100% \xe9.wav";
    facts.before.emplace();
    auto json = nlohmann::ordered_json::parse(dump(to_json(facts)));
    EXPECT_EQ(facts.input, facts_from_json(json).input);
    for (const char* wrong : {"%", "%4", "%4x", "%-1", "x%"}) {
        json["input_bytes"] = wrong;
        EXPECT_THROW(facts_from_json(json), FactsError) << wrong;
    }
    json.erase("input_bytes");
    for (const double level : {1e300, 1000.5, -3301.0}) {
        json["before"]["rms_dbfs"] = level;
        EXPECT_THROW(facts_from_json(json), nlohmann::json::exception) << level;
    }
    facts.findings = {{"hum", Severity::Warning, 12.3, "dB", {}, "50 Hz"}};
    const auto findings = to_json(facts);
    for (const auto& [name, wrong] : std::vector<std::pair<std::string, std::string>>{
             {"code", "<hum>"}, {"severity", "grave"}, {"detail", std::string(41, 'x')}}) {
        auto changed = findings;
        changed["findings"][0][name] = wrong;
        EXPECT_THROW(facts_from_json(changed), FactsError) << name;
    }
    json["before"]["rms_dbfs"] = nullptr;
    EXPECT_EQ(kSilence, facts_from_json(json).before->rms_dbfs);
}

TEST(Report, APageStandsAloneAndStaysSmall) {
    const std::string page = report_page(an_hour());
    EXPECT_THAT(page.size(), Lt(1000000u));
    for (const char* fetched : {"<script", "<link", "://"}) {
        EXPECT_EQ(page.find(fetched), std::string::npos) << fetched;
    }
    for (const char* part : {"<h1>&lt;b&gt;&quot;1&quot; &amp; &#39;2&#39;.wav</h1>",
                             "prefers-color-scheme:dark", "<details>"}) {
        EXPECT_NE(page.find(part), std::string::npos) << part;
    }
    // The silence in the curve is a gap: the path starts again.
    const std::size_t path = page.find("<path class=\"b\"");
    EXPECT_EQ(std::count(page.begin() + static_cast<long>(path),
                         page.begin() + static_cast<long>(page.find("/>", path)), 'M'),
              2);
}

TEST(Heard, PassagesAreThoseThatAPersonTellsApart) {
    FileFacts facts;
    facts.before = loudness(-27, -7, -28, -70);
    facts.before->short_term_lufs = {1, std::vector<double>(20, -30)};
    facts.after = loudness(-17, -1, -18, -60);
    facts.after->short_term_lufs = {1, std::vector<double>(20, -17)};
    facts.leveling.emplace();
    facts.leveling->gain_db = {1, std::vector<double>(20, 3)};
    // The whole got 10 dB more than the leveling gain of 3 dB. The first two are within 1 dB:
    // (4 * 2 + 4 * 2.8) / 8 = 2.4; the third is short and nearer to the fourth: (1 * 6 + 5 * 9)
    // / 6.
    facts.leveling->passages = {
        {0, 4, -20, 2}, {4, 8, -20, 2.8}, {8, 9, kSilence, 6}, {9, 14, -30, 9}, {14, 20, -25, -1}};
    const std::vector<Passage> heard = heard_passages(facts);
    ASSERT_EQ(3u, heard.size());
    EXPECT_THAT(heard[0].gain_db, DoubleNear(12.4, 1e-9));
    EXPECT_THAT(heard[1].gain_db, DoubleNear(18.5, 1e-9));
    EXPECT_THAT(heard[1].from_s, DoubleNear(8, 1e-9));
    EXPECT_THAT(heard[1].level_db, DoubleNear(-30, 1e-9));
    EXPECT_THAT(heard[2].gain_db, DoubleNear(9, 1e-9));
}

TEST(Report, SeveralFilesGetAnIndexThatNamesTheFailedOnes) {
    const TempDir dir;
    FileFacts failed;
    failed.input = "broken.wav";
    failed.outcome = Outcome::Failed;
    failed.cause = "no audio in it";
    ReportWriter report(dir.path(), 3);
    for (const FileFacts& facts : {an_hour(), an_hour(), failed}) {
        report.add(facts);
    }
    EXPECT_EQ(dir / "index.html", report.finish());
    const std::string index = read_text(dir / "index.html");
    EXPECT_THAT(index, HasSubstr("no audio in it"));
    const std::vector<std::string> pages = dir.entries();
    EXPECT_EQ(pages.size(), 3u) << "equal names get a page each";
    EXPECT_THAT(index, HasSubstr("href=\"%3Cb%3E%221%22%20%26%20%272%27.wav-2.html\""));
    for (const std::string& page : pages) {
        EXPECT_EQ(page != "index.html", page.rfind("<b>\"1\" & '2'.wav", 0) == 0) << page;
    }
}

TEST(FactsList, GivesBackWhatItWasGiven) {
    std::vector<FileFacts> files(6);
    files[0].input = "missing.wav";
    files[0].outcome = Outcome::Failed;
    files[0].cause = "does not exist";
    files[1] = files[0];
    files[1].input = "also-missing.wav";
    files[2].outcome = Outcome::Skipped;
    files[3].bytes = 5;
    files[4].before.emplace();
    files[5].notes = {"a note"};
    FactsList list(files.size() + 1);
    for (std::size_t i = 0; i < files.size(); ++i) {
        list.set(i, files[i]);
    }
    files.emplace_back();  // one that was never set
    std::vector<std::string> kept;
    for (const FileFacts& facts : list) {
        kept.push_back(dump(to_json(facts)));
    }
    ASSERT_EQ(files.size(), kept.size());
    for (std::size_t i = 0; i < files.size(); ++i) {
        const std::string expected = dump(to_json(files[i]));
        EXPECT_EQ(expected, kept[i]);
        EXPECT_EQ(expected, dump(to_json(list.take(i))));
        EXPECT_EQ(dump(to_json(FileFacts{})), dump(to_json(list.take(i)))) << "it was given away";
    }
}

}  // namespace
}  // namespace quorvane
