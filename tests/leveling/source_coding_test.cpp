#include "leveling/findings/source_coding.h"

#include <gtest/gtest.h>

#include <string>

#include "leveling/findings/findings.h"

namespace quorvane {
namespace {

constexpr int kRate = 16000;

TEST(SourceCoding, ALowRateIsAWarning) {
    struct Row {
        const char* format;
        int channels;
        double kbps;
        bool is_low;
    };

    for (const Row& row : {Row{"MPEG-1/2 Audio, MPEG Layer III", 1, 32, true},
                           Row{"MPEG-1/2 Audio, MPEG Layer III", 1, 43, true},
                           Row{"MPEG-1/2 Audio, MPEG Layer III", 1, 45, false},
                           Row{"MPEG-1/2 Audio, MPEG Layer III", 2, 65, true},
                           Row{"MPEG-1/2 Audio, MPEG Layer III", 2, 67, false},
                           Row{"OGG (OGG Container format), Opus", 1, 24, false},
                           Row{"OGG (OGG Container format), Opus", 1, 8, true},
                           Row{"WAV (Microsoft), Signed 16 bit PCM", 1, 16, false}}) {
        SCOPED_TRACE(std::string(row.format) + " " + std::to_string(row.kbps));
        FileFacts facts;
        facts.format = row.format;
        facts.channels = row.channels;
        facts.sample_rate_hz = kRate;
        facts.frames = 10 * kRate;
        add_results(static_cast<std::int64_t>(row.kbps * 1000 / 8 * 10), facts);
        EXPECT_EQ(!facts.findings.empty(), row.is_low);
    }
}

}  // namespace
}  // namespace quorvane
