#include "cli/options/option_values.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/split.hpp>
#include <boost/lexical_cast.hpp>

#include "leveling/facts/destinations.h"
#include "leveling/facts/nearest_word.h"
#include "leveling/facts/own_destination.h"

namespace quorvane {
namespace {

// More parts than any cluster has tasks; a larger number is a slip.
constexpr std::size_t kMostShards = 1'000'000;

/** Reads decimal digits alone: no sign, no space, nothing behind them. */
bool read_number(const std::string& text, std::size_t& number) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos &&
           boost::conversion::try_lexical_convert(text, number);
}

/** Throws UsageError that names what is meant instead. */
[[noreturn]] void refuse_destination(const std::string& word) {
    // A target that is written in full has errors of its own, such as a loudness out of range.
    if (const std::string problem = own_destination(word).problem; !problem.empty()) {
        throw UsageError(fmt::format("--for {}: {}", word, problem));
    }
    std::vector<std::string> words = all_destination_words();
    const std::string listed = boost::algorithm::join(words, ", ");
    // Suggested as well where a target in full was misspelled.
    words.emplace_back("lufs=-18:tp=-1.5");
    throw UsageError(fmt::format("--for takes {} or a target such as lufs=-18:tp=-1.5, not '{}'{}",
                                 listed, word, did_you_mean(word, words)));
}

}  // namespace

When parse_when(const char* name, const std::string& text) {
    if (text == "auto") {
        return When::Auto;
    }
    if (text == "always") {
        return When::Always;
    }
    if (text == "never") {
        return When::Never;
    }
    throw UsageError(fmt::format("--{} takes auto, always or never, not '{}'", name, text));
}

std::size_t parse_number(const char* name, const std::string& text, std::size_t most) {
    std::size_t number = 0;
    if (!read_number(text, number) || number < 1 || number > most) {
        throw UsageError(
            fmt::format("--{} takes a number from 1 to {}, not '{}'", name, most, text));
    }
    return number;
}

Shard parse_shard(const std::string& text) {
    Shard shard;
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos || !read_number(text.substr(0, slash), shard.index) ||
        !read_number(text.substr(slash + 1), shard.count) || shard.index >= shard.count) {
        throw UsageError(fmt::format(
            "--shard takes I/N with I from 0 to N-1, such as 0/4 to 3/4, not '{}'", text));
    }
    // The part itself was right: only the count is refused.
    if (shard.count > kMostShards) {
        throw UsageError(
            fmt::format("--shard {}: the work is cut into {} parts at most", text, kMostShards));
    }
    return shard;
}

double parse_settle(const std::string& text) {
    constexpr double kMostSeconds = 60;  // as long as a run waits
    double seconds = 0;
    // The library would also accept "1e1", "inf" and "nan".
    // A text with two points passes this test and fails in the conversion.
    const bool decimal = text.find_first_not_of("0123456789.") == std::string::npos;
    if (!decimal || !boost::conversion::try_lexical_convert(text, seconds) ||
        seconds > kMostSeconds) {
        throw UsageError(
            fmt::format("--settle takes seconds from 0 to {}, not '{}'", kMostSeconds, text));
    }
    return seconds;
}

int parse_audio_stream(const std::string& text) {
    int number = 0;
    if (text == "all") {
        return kEveryAudioStream;
    }
    if (!boost::conversion::try_lexical_convert(text, number) || number < 1) {
        throw UsageError(
            fmt::format("--audio-stream takes a number from 1, or all, not '{}'", text));
    }
    return number;
}

std::vector<std::string> parse_destinations(const std::string& text) {
    std::vector<std::string> given;
    boost::algorithm::split(given, text, [](char c) { return c == ','; });
    // In the order given, without repeats, each by its main word.
    std::vector<std::string> words;
    for (const std::string& word : given) {
        const std::optional<Destination> destination = find_destination(word);
        if (!destination) {
            refuse_destination(word);
        }
        // A place may have two words.
        if (std::find(words.begin(), words.end(), destination->word) == words.end()) {
            words.push_back(destination->word);
        }
    }
    return words;
}

}  // namespace quorvane
