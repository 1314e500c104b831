#include "leveling/findings/source_coding.h"

#include <algorithm>
#include <cctype>
#include <string>

namespace quorvane {
namespace {

/** A word in the name of a format or codec, and the lowest good rate of one channel. */
struct Codec {
    const char* word;
    const char* name;
    double least_kbps;
};

constexpr Codec kCodecs[] = {
    {"mpeg layer iii", "MP3", 44}, {"mp3", "MP3", 44}, {"aac", "AAC", 36}, {"vorbis", "Vorbis", 36},
    {"opus", "Opus", 14},          {"wma", "WMA", 44}, {"amr", "AMR", 20}, {"gsm", "GSM", 20},
};
constexpr double kOfTwoChannels = 1.5;  // they are coded together

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) {
        return static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    });
    return text;
}

}  // namespace

void add_source_coding(std::int64_t input_bytes, FileFacts& facts) {
    const double seconds = facts.duration_s();
    if (seconds <= 0) {
        return;
    }
    const std::string name = lower(facts.media ? facts.media->codec : facts.format);
    double kbps = static_cast<double>(input_bytes) * 8 / seconds / 1000;
    if (facts.media) {
        kbps = static_cast<double>(facts.media->bit_rate_bps) / 1000;
    }
    for (const Codec& codec : kCodecs) {
        if (name.find(codec.word) == std::string::npos) {
            continue;
        }
        const double least = codec.least_kbps * (facts.channels > 1 ? kOfTwoChannels : 1);
        if (kbps > 0 && kbps < least) {
            facts.findings.push_back(
                {"low-bit-rate", Severity::Warning, kbps, "kbit/s", {}, codec.name});
        }
        return;
    }
}

}  // namespace quorvane
