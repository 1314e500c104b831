#include "leveling/publish/verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <cmath>
#include <set>

#include "Common/version.h"
#include "leveling/advice/speech_words.h"
#include "leveling/words/text.h"

/*
 * The sentences that come first, on the screen, in the report and in the JSON: what was done, how
 * even it is, and where it may go. They are made in one place so that all three say the same. A
 * destination is answered with yes, "but", or no, and never with two of them.
 */

namespace quorvane {
namespace {

using Json = nlohmann::ordered_json;

/** The loudness that the file has now; null when it was not measured. */
const Loudness* measured(const FileFacts& facts) {
    if (facts.after) {
        return &*facts.after;
    }
    return facts.before ? &*facts.before : nullptr;
}

/** Of a track, or of the mix. */
std::string conversation_sentence(const ConversationPart& part) {
    if (part.mix) {
        return fmt::format("The mix of {} tracks.", part.tracks);
    }
    const std::string track = fmt::format("One of {} tracks of a conversation", part.tracks);
    return part.speaks_s > 0
               ? fmt::format("{}; its owner speaks for {}.", track, clock_text(part.speaks_s))
               : track + "; its owner does not speak, so it is not raised.";
}

/** ": CAUSE", or nothing. The sentence adds the full stop; causes of libsndfile have their own. */
std::string because_of(std::string cause) {
    if (!cause.empty() && cause.back() == '.') {
        cause.pop_back();
    }
    return cause.empty() ? "" : ": " + cause;
}

/** One sentence with its full stop, "" where there is nothing to say. */
std::string what_happened(const FileFacts& facts) {
    const std::string because = because_of(facts.cause);
    switch (facts.outcome) {
        case Outcome::Failed:
            return fmt::format("Nothing was written{}.", because);
        case Outcome::Damaged:
            return fmt::format("Damaged{}.", because);
        case Outcome::Skipped:
            return fmt::format("Skipped{}.", because);
        case Outcome::Interrupted:
            return "Not finished; the same command goes on with it.";
        case Outcome::Copied:
            return fmt::format("Copied unchanged{}.", because);
        case Outcome::Planned:
            return "To be done.";
        // Nothing to explain, so the sentence is about the speech itself.
        case Outcome::UpToDate:
        case Outcome::Leveled:
        case Outcome::Analyzed:
            if (facts.conversation) {
                return conversation_sentence(*facts.conversation);
            }
            return facts.before ? speech_headline(facts) : std::string("Leveled; not measured.");
    }
    return "";
}

/** "Not ready for podcast: 2.4 LU too quiet (--for podcast)." */
std::string refusal_sentence(const DestinationCheck& check, const FileFacts& facts, Face face) {
    const std::string way = remedy(check, facts, face);
    return fmt::format("Not ready for {}: {}{}.", check.destination.word, check.words(),
                       way.empty() ? "" : " (" + way + ")");
}

/** Too little speech to judge its levels by. */
bool is_too_short(const FileFacts& facts) {
    return facts.speech && facts.speech->state == SpeechState::TooShort;
}

/** ", but: the right side is silent", or nothing. */
std::string but(const FileFacts& facts) {
    const std::string text = objections_text(facts);
    return text.empty() ? "" : ", but: " + text;
}

/** The delivery targets that the file meets as it is, for a run without --for. */
std::string offers(const FileFacts& facts, Face face) {
    std::vector<std::string> words;
    for (const Destination& destination : destinations()) {
        if (check_file(destination, facts).met()) {
            words.push_back(destination.word);
        }
    }
    const std::string found = objections_text(facts);
    std::string text;
    if (!words.empty()) {
        text = fmt::format("Ready as it is for {}{}.", boost::algorithm::join(words, ", "),
                           but(facts));
    } else if (!found.empty()) {
        text = fmt::format("Found: {}.", found);
    }
    // The window has no such choice, and who got a page has no program.
    if (face == Face::CommandLine && !is_too_short(facts)) {
        text += text.empty() ? "" : " ";
        text += "--for makes it ready for a place, as in --for podcast.";
    }
    return text;
}

/** Thousandths, as all levels in the JSON; null for silence, which has no distance. */
Json rule_document(const UnmetRule& rule) {
    return {{"what", rule.what},
            {"distance", std::isfinite(rule.by) ? Json(std::round(rule.by * 1000) / 1000) : Json()},
            {"unit", rule.unit}};
}

/** asked: the place was named by --for. */
Json check_document(const DestinationCheck& check, const FileFacts& facts, bool asked) {
    Json misses = Json::array();
    for (const UnmetRule& rule : check.misses) {
        misses.push_back(rule_document(rule));
    }
    return {{"for", check.destination.word},
            {"name", check.destination.name},
            {"asked", asked},
            {"asks", check.destination.asks(facts.channels)},
            {"pass", check.met()},
            {"misses", misses},
            {"remedy", check.met() ? Json() : Json(remedy(check, facts, Face::CommandLine))},
            {"remarks", Json::array()}};  // programs of version 4.0 read it
}

bool contains(const std::vector<std::string>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

/** The table's destinations, and those of one's own that were asked for. */
Json checks_document(const FileFacts& facts, const std::vector<std::string>& asked) {
    Json checks = Json::array();
    for (const Destination& destination : destinations()) {
        checks.push_back(check_document(check_file(destination, facts), facts,
                                        contains(asked, destination.word)));
    }
    const std::vector<std::string> known = destination_words();
    for (const std::string& word : asked) {
        if (!contains(known, word)) {
            checks.push_back(
                check_document(check_file(*find_destination(word), facts), facts, true));
        }
    }
    return checks;
}

/** "Ready for podcast: 4 of 5 files, 2 of them with a problem or a warning." */
std::string ready_count(const FactsList& files, const std::string& word) {
    std::size_t ready = 0;
    std::size_t but = 0;
    std::size_t asked = 0;
    for (const FileFacts& facts : files) {
        // Tracks are not published, so they do not count.
        asked += facts.is_track() ? 0 : 1;
        if (is_ready(facts, {word})) {
            ++ready;
            but += objections(facts).empty() ? 0 : 1;
        }
    }
    std::string text = fmt::format("Ready for {}: {} of {} files", word, ready, asked);
    if (but != 0) {
        text += but == ready ? (ready == 1 ? ", but with a problem or a warning"
                                           : ", but each with a problem or a warning")
                             : fmt::format(", but {} of them with a problem or a warning", but);
    }
    return text + ".";
}

}  // namespace

// The file must have been measured.
DestinationCheck check_file(const Destination& destination, const FileFacts& facts) {
    return check_destination(destination, *measured(facts), facts.channels, facts.duration_s());
}

// Without a target every measured file is ready that did not fail and is not a track.
bool is_ready(const FileFacts& facts, const std::vector<std::string>& asked) {
    return measured(facts) && !is_failure(facts.outcome) && !facts.is_track() &&
           std::all_of(asked.begin(), asked.end(), [&](const auto& word) {
               return check_file(*find_destination(word), facts).met();
           });
}

// From causes that no gain can help to the last resort; "" where there is nothing to say.
std::string remedy(const DestinationCheck& check, const FileFacts& facts, Face face) {
    const auto misses = [&](const char* what) {
        return std::any_of(check.misses.begin(), check.misses.end(),
                           [&](const UnmetRule& rule) { return rule.what == what; });
    };
    // An infinite distance: no loudness could be measured.
    if (std::any_of(check.misses.begin(), check.misses.end(), [](const UnmetRule& rule) {
            return rule.what == "loudness" && !std::isfinite(rule.by);
        })) {
        // With a peak there is sound, only too little of it for a loudness.
        return std::isfinite(measured(facts)->sample_peak_dbfs) ? "" : "there is nothing to hear";
    }
    const bool only_room_tone =
        std::all_of(check.misses.begin(), check.misses.end(),
                    [](const UnmetRule& rule) { return rule.what == "room tone"; });
    if (only_room_tone) {
        return "add or cut recorded room tone in an editor";
    }
    // Nothing was done for this place yet: asking for it is the way.
    const std::string& word = check.destination.word;
    if (!facts.publishing || facts.publishing->destination != word) {
        return face == Face::CommandLine ? "--for " + word : "";
    }
    // All was done, and it was not enough: the reason is in the recording.
    if (misses("noise floor")) {
        return "its pauses are too noisy for its speech; no gain helps, a quieter recording or "
               "noise reduction beforehand does";
    }
    if (facts.publishing->held_back) {
        return fmt::format(
            "more gain would need limiting by over {:g} dB for more than {:g} % of the time, which "
            "is heard",
            kMostLimitingDb, kMostLimitedShare * 100);
    }
    return "this is as near as it gets";
}

std::string readiness(const FileFacts& facts, const std::vector<std::string>& asked, Face face) {
    // Only the mix of a conversation is published. One that is planned has no sound yet.
    if (facts.is_track() || !measured(facts)) {
        return "";
    }
    if (asked.empty()) {
        return offers(facts, face);
    }
    std::vector<std::string> ready;
    std::vector<std::string> sentences;
    for (const std::string& word : asked) {
        const DestinationCheck check = check_file(*find_destination(word), facts);
        if (check.met()) {
            ready.push_back(word);
        } else {
            sentences.push_back(refusal_sentence(check, facts, face));
        }
    }
    // The yes comes first, and the objections are named once: with it or at the end.
    if (!ready.empty()) {
        sentences.insert(
            sentences.begin(),
            fmt::format("Ready for {}{}.", boost::algorithm::join(ready, ", "), but(facts)));
    } else if (const std::string found = objections_text(facts);
               !found.empty() && !is_too_short(facts)) {
        sentences.push_back(fmt::format("Found as well: {}.", found));
    }
    return boost::algorithm::join(sentences, " ");
}

std::string verdict(const FileFacts& facts, const std::vector<std::string>& asked, Face face) {
    // The place that was asked for is refused for being too short: that is said once.
    std::string text =
        is_too_short(facts) && facts.before && !asked.empty() ? "" : what_happened(facts);
    if (measured(facts) && !is_failure(facts.outcome) && facts.outcome != Outcome::Interrupted) {
        const std::string where = readiness(facts, asked, face);
        text += (text.empty() || where.empty() ? "" : " ") + where;
    }
    return text;
}

std::string verdict(const FactsList& files, const std::vector<std::string>& asked, Face face) {
    if (files.size() == 1) {
        return verdict(*files.begin(), asked, face);
    }
    // Measured files, leveled tracks, and files with a problem or a warning.
    std::size_t heard = 0;
    std::size_t tracks = 0;
    std::set<std::string> conversations;
    std::size_t objected = 0;
    for (const FileFacts& facts : files) {
        heard += facts.before ? 1 : 0;
        if (facts.is_track() && !is_failure(facts.outcome)) {
            ++tracks;
            conversations.insert(facts.conversation->first_track);
        }
        objected += facts.before && !objections(facts).empty() ? 1 : 0;
    }
    std::string text =
        heard == 0    ? fmt::format("None of {} files was measured.", files.size())
        : tracks != 0 ? fmt::format("{} tracks of {}, leveled together.", tracks,
                                    conversations.size() == 1
                                        ? "a conversation"
                                        : fmt::format("{} conversations", conversations.size()))
                      : speech_headline(files);
    const auto add = [&](const std::string& sentence) {
        text += (text.empty() ? "" : " ") + sentence;
    };
    // Nothing was measured, so there is nothing to say about places.
    if (heard == 0) {
        return text;
    }
    for (const std::string& word : asked) {
        add(ready_count(files, word));
    }
    if (asked.empty() && objected != 0) {
        add(fmt::format("{} of {} files {} a problem or a warning.", objected, files.size(),
                        objected == 1 ? "has" : "have"));
    }
    return text.empty() ? fmt::format("{} of {} files measured.", heard, files.size()) : text;
}

Json facts_document(const FileFacts& facts, const std::vector<std::string>& asked, Curves curves) {
    Json document = {{"program", "quorvane"},
                     {"version", kVersion},
                     {"verdict", verdict(facts, asked, Face::CommandLine)}};
    if (measured(facts) && !facts.is_track()) {
        document["destinations"] = checks_document(facts, asked);
    }
    document.update(to_json(facts, curves));
    return document;
}

}  // namespace quorvane
