#include "leveling/report/report.h"

#include <gmock/gmock.h>

#include <boost/algorithm/string/replace.hpp>
#include <boost/algorithm/string/split.hpp>
#include <cmath>
#include <limits>

#include "leveling/advice/advice_table.h"
#include "leveling/audio/peak_curve.h"
#include "leveling/audio/stretches.h"
#include "leveling/publish/verdict.h"
#include "leveling/report/csv.h"
#include "leveling/report/heard.h"
#include "leveling/report/listen.h"
#include "tests/support/fixtures.h"
#include "tests/support/signals.h"

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::UnorderedElementsAreArray;

namespace quorvane {
namespace {

constexpr double kSilence = -std::numeric_limits<double>::infinity();

/** 100 s; three passages of speech that got 12, 4 and 2 dB. */
FileFacts a_talk() {
    FileFacts facts;
    facts.input = "talk.wav";
    facts.output = "talk-leveled.wav";
    facts.outcome = Outcome::Leveled;
    facts.sample_rate_hz = 16000;
    facts.channels = 1;
    facts.frames = 1600000;
    facts.before.emplace();
    facts.before->short_term_lufs = {1, std::vector<double>(100, -30)};
    facts.before->peaks_dbfs = {25, {kSilence, -20, -12, 0}};
    facts.after = facts.before;
    facts.leveling.emplace();
    facts.leveling->gain_db = {1, std::vector<double>(100, 3)};
    facts.speech = SpeechLevels{SpeechState::Measured,
                                40,
                                3,
                                {{0, 10, -30, -18}, {10, 30, -22, -18}, {40, 50, -20, -18}},
                                10,
                                0};
    return facts;
}

TEST(PeakCurve, HalvesGiveTheOutlineOfTheWhole) {
    // 40 s at 1000 Hz in steps of 40 ms: a thousand. One sample of 0.5 in step 2, one of -1 in the
    // step that the halves share: 20 log10(0.5) = -6.02 dB, 0 dB.
    constexpr std::size_t kFrames = 40000;
    constexpr std::size_t kMiddle = 20010;  // 10 frames into step 500
    std::vector<float> samples(kFrames * 2);
    samples[100 * 2 + 1] = 0.5F;
    samples[(kMiddle - 5) * 2] = 0.25F;
    samples[(kMiddle + 5) * 2] = -1;
    PeakCurve whole(2, 1000, kFrames, 0);
    whole.add(samples.data(), kFrames);
    PeakCurve first(2, 1000, kFrames, 0);
    PeakCurve second(2, 1000, kFrames, kMiddle);
    first.add(samples.data(), 77);
    first.add(samples.data() + 77 * 2, kMiddle - 77);
    second.add(samples.data() + kMiddle * 2, kFrames - kMiddle);
    first.append(second);
    const Curve curve = whole.dbfs();
    EXPECT_EQ(0.04, curve.step_s);
    ASSERT_EQ(1000u, curve.values.size());
    EXPECT_EQ(-6, curve.values[2]);
    EXPECT_EQ(0, curve.values[500]);
    EXPECT_EQ(kSilence, curve.values[3]);
    EXPECT_EQ(curve.values, first.dbfs().values);
    // A short one has steps of 20 ms.
    PeakCurve brief(1, 1000, 50, 0);
    brief.add(samples.data(), 50);
    EXPECT_EQ(3u, brief.dbfs().values.size());
}

TEST(ShownPassages, AreComparedWithTheRest) {
    // Gains 12, 4, 2 over 10, 20, 10 s: the mean is (120 + 80 + 20) / 40 = 5.5.
    FileFacts facts = a_talk();
    std::vector<ShownPassage> shown = shown_passages(facts);
    ASSERT_EQ(3u, shown.size());
    EXPECT_DOUBLE_EQ(6.5, shown[0].against_db);
    EXPECT_DOUBLE_EQ(-1.5, shown[1].against_db);
    EXPECT_EQ(-20, shown[2].before_lufs);
    EXPECT_EQ(-18, shown[2].after_lufs);
    // Not all passages were kept: those of the engine, with levels of the curve.
    facts.speech->count = 300;
    facts.leveling->passages = {{0, 50, -40, 3}, {50, 100, -40, 9}};
    shown = shown_passages(facts);
    ASSERT_EQ(2u, shown.size());
    EXPECT_DOUBLE_EQ(-30, shown[0].before_lufs);
    EXPECT_DOUBLE_EQ(3, shown[1].against_db);
    facts.after.reset();
    EXPECT_TRUE(shown_passages(facts).empty());
}

TEST(Page, ShowsTheWaveformWithMarksAndNoNegativeZero) {
    FileFacts facts = a_talk();
    facts.leveling->gain_db.values.assign(100, -0.01);
    facts.findings = {{"clipped", Severity::Problem, 3, "%", {{25, 26}, {99, 100}}, ""},
                      {"noise", Severity::Note, 20, "dB", {}, ""}};
    const std::string page = report_page(facts);
    // Peaks of -12 dBFS reach 50 * 10^(-12/20) = 12.6 above the middle, silence a thin line.
    EXPECT_THAT(page, HasSubstr("d=\"M125.0 49.6L375.0 45.0L625.0 37.4L875.0 0.0L875.0 100.0"));
    EXPECT_THAT(page, HasSubstr("<span class=\"panel\">Before</span>"));
    EXPECT_THAT(page, HasSubstr("<span class=\"panel\">After</span>"));
    EXPECT_THAT(page, HasSubstr("style=\"left:25.00%\" aria-label=\"problem: Clipped before "
                                "leveling at 0:25\""));
    EXPECT_THAT(page, HasSubstr("data-at=\"99.00\""));
    EXPECT_THAT(page, Not(testing::ContainsRegex("[-−+]0\\.0[^0-9]")));
    EXPECT_THAT(page, HasSubstr("against the rest +6.5 dB"));
    EXPECT_THAT(page, Not(HasSubstr("dBFS</td>")));
}

TEST(Page, ShowsNoLoudnessWhereNoneWasMeasured) {
    FileFacts facts = a_talk();
    facts.frames = 3200;  // 0.2 s
    facts.before->integrated_lufs = facts.after->integrated_lufs = kSilence;
    facts.before->sample_peak_dbfs = -9;
    facts.after->sample_peak_dbfs = -3;
    const char* value = "Loudness</h3><div class=\"value\">";
    EXPECT_THAT(report_page(facts), HasSubstr(value + std::string("– <small>LUFS")));
    // Silence has no peak either.
    facts.before->sample_peak_dbfs = facts.after->sample_peak_dbfs = kSilence;
    EXPECT_THAT(report_page(facts),
                HasSubstr(value + std::string("<small>silent →</small> silent")));
}

TEST(Listening, TakesTheGravestFindingsAndOneLoudness) {
    FileFacts facts = a_talk();
    facts.findings = {{"clipped", Severity::Problem, 3, "%", {{70, 71}}, ""},
                      {"dropouts", Severity::Warning, 3, "", {{90, 91}}, ""},
                      {"rumble", Severity::Note, 3, "dB", {{95, 96}}, ""}};
    std::vector<Stretch> wanted;
    const StretchReader read = [&](const std::string& path, const std::vector<Stretch>& all) {
        wanted = all;
        const double level = path == "talk.wav" ? 0.01 : 0.2;
        return Samples{16000, 1, signals::sine(level, 1000, 8, 16000).samples};
    };
    const std::string part = listening_part(facts, read);
    // 8 s in all: 5 where the gains differ most, 1.5 at each place, beginning 0.3 s before it.
    EXPECT_THAT(part, HasSubstr("data-parts=\"0.00,5.00;69.70,1.50;89.70,1.50\""));
    EXPECT_THAT(part, HasSubstr("then 1:10 (Clipped before leveling), 1:30 (Dropouts)."));
    ASSERT_EQ(3u, wanted.size());
    // At one loudness, what differs in its level only is the same sound.
    const std::size_t first = part.find("base64,");
    const std::size_t second = part.find("base64,", first + 1);
    EXPECT_EQ(part.substr(first, 2000), part.substr(second, 2000));
    EXPECT_EQ("", listening_part(facts, [](const auto&, const auto&) -> Samples {
                  throw std::runtime_error("gone");
              }));
}

TEST(Stretches, AreReadOneBehindTheOther) {
    const TempDir dir;
    Signal signal{1000, 1, {}};
    for (int i = 0; i < 1000; ++i) {
        signal.samples.push_back(i / 1024.0);
    }
    write_sound(dir / "x.wav", signal, kWavFloat);
    // The last one reaches beyond the end by 2 ms.
    const Samples samples =
        read_stretches(dir / "x.wav", {{0.5, 0.002}, {0.1, 0.001}, {0.999, 0.003}});
    EXPECT_THAT(samples.values,
                ElementsAre(500 / 1024.0, 501 / 1024.0, 100 / 1024.0, 999 / 1024.0, 0, 0));
    EXPECT_THROW(read_stretches(dir / "x.wav", {{5, 1}}), std::runtime_error);
}

TEST(ConversationReport, HasALaneForEachSpeaker) {
    const TempDir dir;
    FileFacts host = a_talk();
    host.input = "host.wav";
    host.conversation = ConversationPart{2, false, 65};
    host.leveling->least_gain_db = -5;
    host.leveling->greatest_gain_db = 4;
    FileFacts guest = host;
    guest.input = "guest.wav";
    guest.conversation->speaks_s = 0;
    FileFacts mix = host;
    mix.output = "mix.wav";
    mix.before.reset();
    mix.leveling.reset();
    mix.conversation = ConversationPart{2, true, 0};
    ReportWriter report(dir.path(), 3, {{"podcast"}});
    for (const FileFacts& facts : {host, guest, mix}) {
        report.add(facts);
    }
    report.finish();
    EXPECT_THAT(read_text(dir / "index.html"), HasSubstr("href=\"conversation.html\""));
    const std::string page = read_text(dir / "conversation.html");
    EXPECT_LT(page.find("mix.wav <small>the mix of all"), page.find("host.wav"));
    EXPECT_THAT(page, HasSubstr("<a href=\"host.wav.html\">host.wav</a> <small>speaks for 1:05"));
    EXPECT_THAT(page, HasSubstr("gain -8.0 to +1.0 dB")) << "with the -3 dB of the whole";
    EXPECT_THAT(page, HasSubstr("does not speak, so it is not raised"));
    EXPECT_THAT(page, HasSubstr("Not ready for podcast"));
    EXPECT_THAT(read_text(dir / "host.wav.html"),
                HasSubstr("One of 2 tracks of a conversation; its owner speaks for 1:05."));
}

TEST(ConversationReport, HasAPageForEachConversation) {
    const TempDir dir;
    ReportWriter report(dir.path(), 2);
    for (const char* name : {"one.wav", "two.wav"}) {
        FileFacts facts = a_talk();
        facts.input = name;
        facts.conversation = ConversationPart{2, false, 65};
        facts.conversation->first_track = name;
        report.add(facts);
    }
    report.finish();
    EXPECT_THAT(read_text(dir / "index.html"), HasSubstr("href=\"conversation-2.html\""));
    EXPECT_THAT(read_text(dir / "conversation.html"), testing::Not(HasSubstr("two.wav")));
    EXPECT_THAT(read_text(dir / "conversation-2.html"), testing::Not(HasSubstr("one.wav")));
}

/** What stands between backticks in the first cells of the table behind a heading. */
std::vector<std::string> listed_behind(const std::string& heading) {
    const std::string text = read_text(DOCUMENTS "/results.md");
    const std::string part = text.substr(text.find("\n## " + heading + "\n") + 4);
    const std::string list = part.substr(0, part.find("\n## "));
    std::vector<std::string> listed;
    for (std::size_t at = list.find("\n| `"); at != std::string::npos;
         at = list.find("\n| `", at + 1)) {
        const std::string row = list.substr(at, list.find('|', at + 3) - at);
        for (std::size_t from = row.find('`'); from != std::string::npos;) {
            const std::size_t to = row.find('`', from + 1);
            listed.push_back(row.substr(from + 1, to - from - 1));
            from = row.find('`', to + 1);
        }
    }
    return listed;
}

TEST(Documents, ListEachCodeOfTheFindings) {
    EXPECT_EQ(advice_codes(), listed_behind("Codes of findings"));
}

TEST(Documents, ListEachFieldOfTheJson) {
    FileFacts facts = a_talk();
    facts.input = facts.output = "\xff.wav";
    facts.no_room = facts.earlier_arithmetic = true;
    facts.bytes = 1;
    facts.media.emplace();
    facts.preparation.emplace();
    facts.publishing.emplace();
    facts.conversation = ConversationPart{2, true, 0};
    facts.dialogue_lufs = -20;
    facts.findings = {{"noise", Severity::Note, 20, "dB", {}, ""}};
    facts.unfenced = {"files"};
    std::vector<std::string> fields;
    const auto document = facts_document(facts, {});
    for (const auto& item : document.items()) {
        fields.push_back(item.key());
    }
    EXPECT_THAT(listed_behind("JSON"), UnorderedElementsAreArray(fields));
}

TEST(Documents, ListEachColumnOfTheTable) {
    std::string header = csv_header();
    header.resize(header.size() - 2);  // CR LF
    std::vector<std::string> columns;
    boost::algorithm::split(columns, header, [](char c) { return c == ','; });
    std::vector<std::string> listed;
    for (const std::string& name : listed_behind("CSV")) {
        if (name.find('*') == std::string::npos) {
            listed.push_back(name);
            continue;
        }
        for (const char* time : {"before", "after"}) {
            listed.push_back(boost::algorithm::replace_all_copy(name, "*", time));
        }
    }
    EXPECT_THAT(listed, UnorderedElementsAreArray(columns));
}

}  // namespace
}  // namespace quorvane
