#include "leveling/advice/speech_words.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace quorvane {
namespace {

/** What is within 1 dB sounds the same. */
constexpr long kSame_db = 1;

/** "Passages of speech were up to 14 dB apart; now within 1 dB." */
std::string spans_text(const std::string& passages, long before, long after) {
    if (before == after) {
        return fmt::format("{} are within {} dB of each other, as before.", passages, before);
    }
    if (after > before) {
        return fmt::format("{} were within {} dB of each other; now up to {} dB apart.", passages,
                           before, after);
    }
    return fmt::format("{} were up to {} dB apart; now within {} dB.", passages, before, after);
}

/** One sentence on how far apart passages are, whole dB. */
std::string span_text(const std::string& passages, long span) {
    return span <= kSame_db ? fmt::format("{} are within {} dB of each other.", passages, span)
                            : fmt::format("{} are up to {} dB apart.", passages, span);
}

std::string files_text(std::size_t count) {
    return fmt::format("{} file{}", count, count == 1 ? "" : "s");
}

/** Whether the levels of the output were measured. */
bool is_leveled(const FileFacts& facts) {
    return facts.after && std::isfinite(facts.speech->span_after_db);
}

/** What the files of a run have in common. */
struct Whole {
    std::size_t measured = 0;  // files with levels of speech
    std::size_t leveled = 0;
    std::size_t too_short = 0;
    std::size_t silent = 0;
    long before = 0;
    long after = 0;
};

/** The counts and the widest spans over all files. */
Whole whole_of(const FactsList& files) {
    Whole whole;
    for (const FileFacts& facts : files) {
        if (!facts.speech || !facts.before) {
            continue;
        }
        whole.too_short += facts.speech->state == SpeechState::TooShort ? 1 : 0;
        whole.silent += facts.speech->state == SpeechState::NoSpeech ? 1 : 0;
        if (facts.speech->state != SpeechState::Measured) {
            continue;
        }
        ++whole.measured;
        whole.leveled += is_leveled(facts) ? 1 : 0;
        const double now =
            is_leveled(facts) ? facts.speech->span_after_db : facts.speech->span_before_db;
        whole.before = std::max(whole.before, whole_db(facts.speech->span_before_db));
        whole.after = std::max(whole.after, whole_db(now));
    }
    return whole;
}

}  // namespace

// "0 dB apart" would claim more than a measurement can.
long whole_db(double span) {
    return std::max(1L, std::lround(span));
}

std::string speech_headline(const FileFacts& facts) {
    if (!facts.speech) {
        return "";
    }
    switch (facts.speech->state) {
        case SpeechState::TooShort:
            return "Too short to measure: needs 0.4 s.";
        case SpeechState::NoSpeech:
            return "No speech found.";
        case SpeechState::Measured:
            break;
    }
    if (facts.speech->count <= 1) {
        return "All speech is one passage of even level.";
    }
    const long before = whole_db(facts.speech->span_before_db);
    return is_leveled(facts)
               ? spans_text("Passages of speech", before, whole_db(facts.speech->span_after_db))
               : span_text("Passages of speech", before);
}

std::string speech_headline(const FactsList& files) {
    const Whole whole = whole_of(files);
    if (whole.measured + whole.too_short + whole.silent == 0) {
        return "";
    }
    std::string text;
    if (whole.measured != 0) {
        const std::string passages =
            fmt::format("In {} passages of speech", files_text(whole.measured));
        text = whole.leveled != 0 ? spans_text(passages, whole.before, whole.after)
                                  : span_text(passages, whole.before);
    }
    const auto add = [&](const std::string& sentence) {
        text += (text.empty() ? "" : " ") + sentence;
    };
    if (whole.silent != 0) {
        add(fmt::format("No speech found in {}.", files_text(whole.silent)));
    }
    if (whole.too_short != 0) {
        add(fmt::format("Too short to measure (needs 0.4 s): {}.", files_text(whole.too_short)));
    }
    return text;
}

}  // namespace quorvane
