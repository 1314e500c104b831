#include <gmock/gmock.h>

#include <cmath>
#include <limits>

#include "leveling/advice/advice_table.h"
#include "leveling/advice/explain.h"
#include "leveling/advice/finding_words.h"
#include "leveling/advice/notable_deeds.h"
#include "leveling/advice/speech_words.h"
#include "leveling/facts/nearest_word.h"
#include "leveling/facts/own_destination.h"
#include "leveling/publish/verdict.h"
#include "leveling/report/csv.h"

using namespace quorvane;
using testing::HasSubstr;
using testing::Not;

namespace {

constexpr double kNone = -std::numeric_limits<double>::infinity();

const Finding kSilent = {"side-silent", Severity::Problem, 60, "dB", {}, "right"};
const Finding kShort = {"short", Severity::Warning, 1, "s", {}, "speech"};
const Finding kRaised = {"raised", Severity::Note, 24.56, "dB", {}, ""};

/** A mono file at the loudness for podcasts, before and after. */
FileFacts a_file(double span_before, double span_after) {
    FileFacts facts;
    facts.outcome = Outcome::Leveled;
    facts.channels = 1;
    facts.sample_rate_hz = 16000;
    facts.frames = 160000;
    facts.before.emplace();
    facts.before->integrated_lufs = -27;
    facts.before->true_peak_dbtp = facts.before->sample_peak_dbfs = -7;
    facts.before->rms_dbfs = -28;
    facts.after = facts.before;
    facts.after->integrated_lufs = -19.1;
    facts.after->true_peak_dbtp = -1.5;
    facts.speech = SpeechLevels{SpeechState::Measured, 8, 3, {}, span_before, span_after};
    return facts;
}

TEST(SpeechHeadline, ComesFromTheLevelsOfSpeech) {
    struct Row {
        SpeechState state;
        int count;
        double before;
        double after;
        const char* one;
        const char* two;
    };

    const Row rows[] = {
        {SpeechState::Measured, 3, 14.2, 0.4,
         "Passages of speech were up to 14 dB apart; now within 1 dB.",
         "In 2 files passages of speech were up to 14 dB apart; now within 1 dB."},
        {SpeechState::Measured, 3, 2.4, 1.6,
         "Passages of speech are within 2 dB of each other, as before.",
         "In 2 files passages of speech are within 2 dB of each other, as before."},
        {SpeechState::Measured, 3, 1, 3,
         "Passages of speech were within 1 dB of each other; now up to 3 dB apart.",
         "In 2 files passages of speech were within 1 dB of each other; now up to 3 dB apart."},
        {SpeechState::Measured, 3, 6, kNone, "Passages of speech are up to 6 dB apart.",
         "In 2 files passages of speech are up to 6 dB apart."},
        {SpeechState::Measured, 1, 0, 0, "All speech is one passage of even level.",
         "In 2 files passages of speech are within 1 dB of each other, as before."},
        {SpeechState::NoSpeech, 0, 0, 0, "No speech found.", "No speech found in 2 files."},
        {SpeechState::TooShort, 0, 0, 0, "Too short to measure: needs 0.4 s.",
         "Too short to measure (needs 0.4 s): 2 files."},
    };
    for (const Row& row : rows) {
        FileFacts facts = a_file(row.before, row.after);
        facts.speech->state = row.state;
        facts.speech->count = row.count;
        facts.before->range_lu = 40;  // which has no say
        EXPECT_EQ(row.one, speech_headline(facts));
        EXPECT_EQ(row.two, speech_headline(FactsList{facts, facts}));
    }
    FileFacts none = a_file(1, 1);
    none.speech->state = SpeechState::NoSpeech;
    EXPECT_EQ(
        "In 1 file passages of speech were up to 9 dB apart; now within 2 dB. No speech found in 1 "
        "file.",
        speech_headline(FactsList{a_file(9, 2), none}));
    none.speech.reset();  // of a record of an earlier version
    EXPECT_EQ("", speech_headline(none));
    EXPECT_EQ("", speech_headline(FactsList{none, none}));
    EXPECT_EQ("", speech_headline(FactsList{}));
}

TEST(Verdict, IsOneOfThree) {
    FileFacts facts = a_file(14, 1);
    const std::string apart = "Passages of speech were up to 14 dB apart; now within 1 dB. ";
    const auto said = [&](const std::vector<std::string>& asked, Face face) {
        return verdict(facts, asked, face).substr(apart.size());
    };
    EXPECT_EQ(apart + "Ready for podcast.", verdict(facts, {"podcast"}, Face::Page));
    facts.findings = {kRaised};
    EXPECT_EQ("Ready for podcast.", said({"podcast"}, Face::Page));
    facts.findings = {kShort, kRaised, kSilent};
    EXPECT_EQ(
        "Ready for podcast, but: the right side is silent, and the speech is only 1.0 s long.",
        said({"podcast"}, Face::CommandLine));
    EXPECT_EQ(
        "Ready as it is for podcast, but: the right side is silent, and the speech is only 1.0 s "
        "long.",
        said({}, Face::Page));
    EXPECT_EQ(
        "Ready for podcast, but: the right side is silent, and the speech is only 1.0 s long. Not "
        "ready for "
        "spotify: 4.6 LU too quiet (--for spotify).",
        said({"spotify", "podcast"}, Face::CommandLine));
    EXPECT_EQ(
        "Not ready for spotify: 4.6 LU too quiet. Found as well: the right side is silent, and "
        "the speech is only 1.0 s long.",
        said({"spotify"}, Face::Page));
    EXPECT_EQ(
        "In 2 files passages of speech were up to 14 dB apart; now within 1 dB. Ready for podcast: "
        "2 of 2 files, but 1 of them with a problem or a warning.",
        verdict(FactsList{facts, a_file(3, 1)}, {"podcast"}, Face::Page));
    facts.publishing = Publishing{"spotify", 9, -1, 7, 0.01, true};
    EXPECT_THAT(said({"spotify"}, Face::Page), HasSubstr("(more gain would need limiting"));

    const auto document = facts_document(facts, {"spotify", "lufs=-18:tp=-1.5"});
    EXPECT_EQ("program", document.begin().key());
    const auto& spotify = document["destinations"][1];
    EXPECT_TRUE(spotify["asked"]);
    EXPECT_FALSE(spotify["pass"]);
    EXPECT_EQ(-4.6, spotify["misses"][0]["distance"]);
    EXPECT_EQ("lufs=-18:tp=-1.5", document["destinations"].back()["for"]);
}

TEST(Verdict, AudiobookSaysYesOrNo) {
    FileFacts facts = a_file(14, 1);
    facts.after->rms_dbfs = -20;
    facts.after->sample_peak_dbfs = -3.5;
    facts.after->pauses_dbfs = -65;
    facts.after->head_s = 0.7;
    facts.after->tail_s = 3;
    EXPECT_THAT(verdict(facts, {"audiobook"}, Face::Page), HasSubstr("Ready for audiobook."));
    facts.after->head_s = 0;
    EXPECT_THAT(
        verdict(facts, {"audiobook"}, Face::Page),
        HasSubstr("Not ready for audiobook: 0.0 s of room tone at the head instead of 0.5 to "
                  "1 s (add or cut recorded room tone in an editor)."));
    EXPECT_FALSE(is_ready(facts, {"audiobook"}));
}

TEST(Verdict, EndsWithOneFullStop) {
    FileFacts facts;
    facts.outcome = Outcome::Failed;
    for (const char* cause : {"cannot be read as audio: Format not recognised.",
                              "cannot be read as audio: Format not recognised"}) {
        facts.cause = cause;
        EXPECT_EQ("Nothing was written: cannot be read as audio: Format not recognised.",
                  verdict(facts, {}, Face::Page));
    }
    facts.cause = "";
    EXPECT_EQ("Nothing was written.", verdict(facts, {}, Face::Page));
}

TEST(Verdict, TooShortIsNotSilent) {
    FileFacts facts = a_file(0, 0);
    facts.frames = 3200;
    facts.after->integrated_lufs = kNone;
    facts.speech->state = SpeechState::TooShort;
    EXPECT_EQ(
        "Not ready for podcast: too short to measure: needs 0.4 "
        "s.",
        verdict(facts, {"podcast"}, Face::CommandLine));
    facts.after->sample_peak_dbfs = kNone;
    EXPECT_THAT(verdict(facts, {"podcast"}, Face::CommandLine),
                HasSubstr("Not ready for podcast: silent (there is nothing to hear)."));
}

TEST(Findings, AreSentencesWithAdviceForEachFace) {
    EXPECT_EQ("The right side is silent.", sentence_of(kSilent));
    EXPECT_EQ("It was so quiet that it was raised by 24.6 dB.", sentence_of(kRaised));
    EXPECT_EQ("mains hum (50 Hz) is 12.0 dB under the speech",
              clause_of({"hum", Severity::Warning, -12, "dB", {}, "50 Hz"}));
    EXPECT_EQ("0.003 % of the recording is clipped",
              clause_of({"clipped", Severity::Note, 0.003, "%", {}, ""}));
    EXPECT_EQ("from-later (3.5 dB)", clause_of({"from-later", Severity::Note, 3.5, "dB", {}, ""}));
    EXPECT_EQ("0:01, 1:02, 1:01:02 and 1 more",
              places_of({"clipped",
                         Severity::Problem,
                         1,
                         "%",
                         {{1, 2}, {62, 63}, {3662, 3663}, {9000, 9001}},
                         ""}));
    for (const Advice& advice : advice_table()) {
        SCOPED_TRACE(advice.code);
        const Finding finding = {advice.code, Severity::Warning, -0.0, "dB", {}, "left"};
        EXPECT_THAT(clause_of(finding), Not(HasSubstr("{")));
        EXPECT_THAT(clause_of(finding), Not(HasSubstr("-0.0")));
        // Options are for the command line, and a page names no face at all.
        EXPECT_THAT(advice_of(finding, Face::Window), Not(HasSubstr("--")));
        EXPECT_THAT(advice_of(finding, Face::Page), Not(HasSubstr("--")));
        EXPECT_THAT(advice_of(finding, Face::Page), Not(HasSubstr("drop")));
        EXPECT_THAT(explanation(advice.code), HasSubstr("Before the next recording\n  "));
        EXPECT_THAT(explanation(""), HasSubstr(advice.title));
    }
}

TEST(NotableDeeds, LeaveOutWhatAFindingSays) {
    FileFacts facts;
    facts.outcome = Outcome::Leveled;
    facts.preparation.emplace();
    facts.preparation->raised_db = 40;
    facts.preparation->background_under_speech_db = 5;
    const auto count = [&](Severity least_shown) {
        return notable_deeds(facts, Phrasing::Notable, least_shown).size();
    };
    EXPECT_EQ(count(Severity::Note), 2u);
    facts.findings = {{"raised", Severity::Warning, 40, "dB", {}, ""}};
    EXPECT_EQ(count(Severity::Warning), 1u);
    facts.findings.push_back({"music-bed", Severity::Note, -12, "dB", {}, ""});
    EXPECT_EQ(count(Severity::Warning), 1u);  // the note is not shown
    EXPECT_EQ(count(Severity::Note), 0u);
    facts.findings.clear();
    facts.conversation = ConversationPart{2, false, 5};  // the other voices are its background
    EXPECT_EQ(count(Severity::Note), 1u);
}

TEST(Words, TheNearestIsTheOneThatWasMeant) {
    const std::vector<std::string> words = {"podcast", "spotify", "audiobook", "atsc",
                                            "lufs=-18:tp=-1.5"};
    const std::pair<const char*, const char*> rows[] = {
        {"podcst", "podcast"},
        {"Podcats", "podcast"},
        {"atcs", "atsc"},
        {"audio", "audiobook"},
        {"tiktok", ""},
        {"", ""},
        {"luf=-18:tp=-1", "lufs=-18:tp=-1.5"},
    };
    for (const auto& [typed, meant] : rows) {
        EXPECT_EQ(meant, nearest_word(typed, words)) << typed;
    }
    EXPECT_EQ(" (did you mean podcast?)", did_you_mean("podcst", words));
}

TEST(OwnDestination, IsReadInItsRangesAndHasOneWord) {
    const Destination own = *find_destination("tp=-1.50:lufs=-18.0");
    EXPECT_EQ("lufs=-18:tp=-1.5", own.word);
    EXPECT_EQ("−18 LUFS ±0.5, true peak up to −1.5 dBTP", own.asks(2));
    FileFacts facts = a_file(3, 1);
    for (const double off : {-0.49, 0.49, -0.51, 0.51}) {
        facts.after->integrated_lufs = -18 + off;
        EXPECT_EQ(is_ready(facts, {own.word}), std::abs(off) < 0.5) << off;
    }
    for (const char* edge : {"lufs=-40:tp=-20", "lufs=-5:tp=0"}) {
        EXPECT_TRUE(find_destination(edge)) << edge;
    }
    const std::pair<const char*, const char*> wrong[] = {
        {"lufs=-40.1:tp=-1", "lufs takes a number from -40 to -5, not '-40.1'"},
        {"lufs=-4.9:tp=-1", "lufs takes a number from -40 to -5, not '-4.9'"},
        {"lufs=-18:tp=0.1", "tp takes a number from -20 to 0, not '0.1'"},
        {"lufs=-18:tp=nan", "tp takes a number from -20 to 0, not 'nan'"},
        {"lufs=-18:tp=-1x", "tp takes a number from -20 to 0, not '-1x'"},
        {"lufs=-18:tp=", "tp takes a number from -20 to 0, not ''"},
        {"lufs=-18:lufs=-18", "lufs is given twice"},
        {"lufs=-18", "tp is missing, as in lufs=-18:tp=-1.5"},
        {"lufs=-18:peak=-1", "'peak=-1' is neither lufs=NUMBER nor tp=NUMBER"},
    };
    for (const auto& [word, problem] : wrong) {
        EXPECT_EQ(problem, own_destination(word).problem);
        EXPECT_FALSE(find_destination(word)) << word;
    }
}

TEST(Csv, TextIsQuotedAndNoFormula) {
    const std::pair<const char*, const char*> rows[] = {
        {"a.wav", "a.wav"},
        {"", ""},
        {"a, b.wav", "\"a, b.wav\""},
        {"a\"b", "\"a\"\"b\""},
        {"a\nb", "\"a\nb\""},
        {"=1+1", "'=1+1"},
        {"+1", "'+1"},
        {"-1.wav", "'-1.wav"},
        {"@SUM(A1)", "'@SUM(A1)"},
        {"=\"x\"", "\"'=\"\"x\"\"\""},
        {"\tx", "'\tx"},
        {"\xe9.wav", "\xef\xbf\xbd.wav"},
        {"a=b", "a=b"},
    };
    for (const auto& [text, cell] : rows) {
        EXPECT_EQ(cell, csv_text(text));
    }
}

TEST(Csv, ARowHasACellForEachColumnAndNumbersStayNumbers) {
    // Stable: programs and spreadsheets refer to these.
    EXPECT_EQ(0u, csv_header().find("input,output,status,for,ready,verdict,problems,warnings,notes,"
                                    "cause,remarks,format,duration_s,"));
    FileFacts facts = a_file(14.2, 1);
    facts.input = "=x.wav";
    facts.findings = {kShort, kSilent, kRaised};
    facts.after->rms_dbfs = kNone;
    const std::string row = csv_row(facts, {"podcast"});
    EXPECT_EQ(
        0u,
        row.find(
            "'=x.wav,,leveled,podcast,yes,\"Passages of speech were up to 14 dB apart; "
            "now within 1 dB. Ready for podcast, but: the right side is silent, and the speech is "
            "only 1.0 s long.\",side-silent,short,raised,,,,10,16000,1,8,3,14.2,1,-27,"
            "-19.1,0,0,-7,-1.5,-7,-7,-28,,0,0,,,,0\r\n"))
        << row;
    FileFacts failed;
    failed.input = "a.wav";
    failed.outcome = Outcome::Failed;
    EXPECT_EQ(0u,
              csv_row(failed, {"podcast"}).find("a.wav,,failed,podcast,no,Nothing was written.,"));
}

}  // namespace
