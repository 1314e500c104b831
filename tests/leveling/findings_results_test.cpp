#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "tests/leveling/found.h"

using testing::DoubleNear;
using testing::ElementsAre;

namespace quorvane {
namespace {

TEST(FindingsOfShortRecordings, SayWhatCannotBeMeasured) {
    const FileFacts clip = facts_of(signals::sine(0.5, 440, 0.2, kRate));
    EXPECT_THAT(codes_of(clip), ElementsAre("short"));
    EXPECT_EQ(clip.speech->state, SpeechState::TooShort);
    EXPECT_EQ(facts_of(signals::silence(5 * kRate, kRate)).speech->state, SpeechState::NoSpeech);
    const Signal two_seconds{
        kRate,
        1,
        {reading().samples.begin() + kRate / 2, reading().samples.begin() + 5 * kRate / 2}};
    const FileFacts words = facts_of(two_seconds);
    EXPECT_EQ(words.speech->state, SpeechState::Measured);
    EXPECT_THAT(codes_of(words), ElementsAre("short"));
    EXPECT_EQ(words.findings[0].detail, "speech");
}

TEST(SpeechLevels, AreThoseOfThePassagesBeforeAndAfter) {
    FileFacts facts = facts_of(reading());
    facts.outcome = Outcome::Leveled;
    facts.before.emplace();
    facts.after.emplace();
    facts.before->integrated_lufs = -40;
    facts.after->integrated_lufs = -18;
    // Tenths of a second: loud up to 11 s, 12 dB lower from there; then all alike.
    facts.before->powers = {0.1, std::vector<double>(236, 0.01)};
    std::fill(facts.before->powers.values.begin() + 110, facts.before->powers.values.end(),
              0.01 * std::pow(10, -1.2));
    facts.after->powers = {0.1, std::vector<double>(236, 0.01)};
    add_results(1000000, facts);
    EXPECT_THAT(facts.speech->span_before_db, DoubleNear(12, 0.2));
    EXPECT_THAT(facts.speech->span_after_db, DoubleNear(0, 1e-9));
    // BS.1770: -0.691 + 10 lg 0.01.
    EXPECT_THAT(facts.speech->passages[0].before_db, DoubleNear(-20.691, 0.001));
    EXPECT_GE(facts.speech->count, 2);
    EXPECT_TRUE(facts.before->powers.values.empty());
    ASSERT_THAT(codes_of(facts), ElementsAre("raised"));
    EXPECT_THAT(facts.findings[0].value, DoubleNear(22, 1e-9));
}

TEST(Raised, IsAWarningFrom30DbOn) {
    const auto found = [](double raised_db) {
        FileFacts facts;
        facts.outcome = Outcome::Leveled;
        facts.before.emplace();
        facts.after.emplace();
        facts.before->integrated_lufs = -18 - raised_db;
        facts.after->integrated_lufs = -18;
        add_results(1000000, facts);
        return facts.findings;
    };
    EXPECT_TRUE(found(14.9).empty());
    ASSERT_EQ(found(29.9).size(), 1U);
    EXPECT_EQ(found(29.9)[0].severity, Severity::Note);
    ASSERT_EQ(found(30.1).size(), 1U);
    EXPECT_EQ(found(30.1)[0].severity, Severity::Warning);
}

}  // namespace
}  // namespace quorvane
