#include "leveling/publish/verdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <cmath>

#include "Common/version.h"

/*
 * The sentences that come first, on the screen, in the report and in the JSON: what was done, how
 * even it is, and where it may go. They are made in one place so that all three say the same.
 */

namespace quorvane {
namespace {

using Json = nlohmann::ordered_json;

/** Whole loudness units: a tenth of one tells nobody anything. */
long whole_lu(const Loudness& loudness) {
    return std::lround(loudness.range_lu);
}

/** What the file sounds like now; null when nobody measured it. */
const Loudness* measured(const FileFacts& facts) {
    if (facts.after) {
        return &*facts.after;
    }
    return facts.before ? &*facts.before : nullptr;
}

/** How far the voices lie apart, by the loudness range of EBU Tech 3342. */
std::string evenness(const FileFacts& facts) {
    const long before = whole_lu(*facts.before);
    if (!facts.after) {
        return before ? fmt::format("The voices are {} LU apart.", before)
                      : std::string("The loudness is even.");
    }
    const long after = whole_lu(*facts.after);
    if (before == after) {
        return after ? fmt::format("The voices are {} LU apart, as before.", after)
                     : std::string("The loudness is even, as before.");
    }
    return fmt::format("The voices were {} LU apart; now {}.", before, after);
}

/** One sentence with its full stop. */
std::string what_happened(const FileFacts& facts) {
    const std::string because = facts.cause.empty() ? "" : ": " + facts.cause;
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
        case Outcome::UpToDate:
        case Outcome::Leveled:
        case Outcome::Analyzed:
            return facts.before ? evenness(facts) : std::string("Leveled; not measured.");
    }
    return "";
}

/** "podcast: yes", or no with what is missing and the way to mend it. */
std::string answer(const DestinationCheck& check, const FileFacts& facts) {
    std::string text = check.destination->word + ": ";
    if (check.met()) {
        text += "yes";
    } else {
        text += fmt::format("no, {} ({})", check.words(), remedy(check, facts));
    }
    for (const std::string& remark : check.remarks) {
        text += "; " + remark;
    }
    return text;
}

/** Thousandths, as all levels in the JSON; null where there is no distance, for silence. */
Json miss_document(const Miss& miss) {
    return {{"what", miss.what},
            {"distance", std::isfinite(miss.by) ? Json(std::round(miss.by * 1000) / 1000) : Json()},
            {"unit", miss.unit}};
}

/** asked: the place was named by --for. */
Json check_document(const DestinationCheck& check, const FileFacts& facts, bool asked) {
    Json misses = Json::array();
    for (const Miss& miss : check.misses) {
        misses.push_back(miss_document(miss));
    }
    return {{"for", check.destination->word},
            {"name", check.destination->name},
            {"asked", asked},
            {"asks", check.destination->asks(facts.channels)},
            {"pass", check.met()},
            {"misses", misses},
            {"remedy", check.met() ? Json() : Json(remedy(check, facts))},
            {"remarks", check.remarks}};
}

bool contains(const std::vector<std::string>& words, const std::string& word) {
    return std::find(words.begin(), words.end(), word) != words.end();
}

}  // namespace

DestinationCheck check_file(const Destination& destination, const FileFacts& facts) {
    return check_destination(destination, *measured(facts), facts.channels);
}

bool is_ready(const FileFacts& facts, const std::vector<std::string>& asked) {
    return measured(facts) && std::all_of(asked.begin(), asked.end(), [&](const auto& word) {
               return check_file(*find_destination(word), facts).met();
           });
}

std::string remedy(const DestinationCheck& check, const FileFacts& facts) {
    const auto misses = [&](const char* what) {
        return std::any_of(check.misses.begin(), check.misses.end(),
                           [&](const Miss& miss) { return miss.what == what; });
    };
    if (std::any_of(check.misses.begin(), check.misses.end(),
                    [](const Miss& miss) { return !std::isfinite(miss.by); })) {
        return "there is nothing to hear";
    }
    // Nothing was done for this place yet: asking for it is the way.
    const std::string& word = check.destination->word;
    if (!facts.publishing || facts.publishing->destination != word) {
        return "--for " + word;
    }
    // All was done, and it was not enough: the reason is in the recording.
    if (misses("noise floor")) {
        return "its pauses are too noisy for its speech; no gain mends that, a quieter recording "
               "or "
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

std::string readiness(const FileFacts& facts, const std::vector<std::string>& asked) {
    std::vector<std::string> answers;
    answers.reserve(std::max(asked.size(), destinations().size()));
    for (const std::string& word : asked) {
        answers.push_back(answer(check_file(*find_destination(word), facts), facts));
    }
    if (!asked.empty()) {
        return fmt::format("Ready for {}.", boost::algorithm::join(answers, "; for "));
    }
    for (const Destination& destination : destinations()) {
        if (check_file(destination, facts).met()) {
            answers.push_back(destination.word);
        }
    }
    const std::string hint = "--for makes it ready for a place, as in --for podcast.";
    return answers.empty() ? hint
                           : fmt::format("Ready as it is for {}; {}",
                                         boost::algorithm::join(answers, ", "), hint);
}

std::string verdict(const FileFacts& facts, const std::vector<std::string>& asked) {
    std::string text = what_happened(facts);
    if (measured(facts) && !is_failure(facts.outcome) && facts.outcome != Outcome::Interrupted) {
        text += " " + readiness(facts, asked);
    }
    return text;
}

std::string verdict(const FactsList& files, const std::vector<std::string>& asked) {
    if (files.size() == 1) {
        return verdict(*files.begin(), asked);
    }
    long before = 0;
    long after = 0;
    std::size_t leveled = 0;
    std::size_t heard = 0;
    for (const FileFacts& facts : files) {
        if (!facts.before) {
            continue;
        }
        ++heard;
        leveled += facts.after ? 1 : 0;
        before = std::max(before, whole_lu(*facts.before));
        after = std::max(after, whole_lu(*measured(facts)));
    }
    std::string text =
        heard == 0 ? fmt::format("Of {} files none was measured.", files.size())
        : leveled  ? fmt::format("In {} files the voices were up to {} LU apart; now at most {}.",
                                 heard, before, after)
                   : fmt::format("In {} files the voices are up to {} LU apart.", heard, before);
    for (const std::string& word : asked) {
        const auto ready = std::count_if(files.begin(), files.end(), [&](const FileFacts& facts) {
            return is_ready(facts, {word});
        });
        text += fmt::format(" Ready for {}: {} of {}.", word, ready, files.size());
    }
    return text;
}

Json facts_document(const FileFacts& facts, const std::vector<std::string>& asked, Curves curves) {
    Json document = {
        {"program", "quorvane"}, {"version", kVersion}, {"verdict", verdict(facts, asked)}};
    if (measured(facts)) {
        Json checks = Json::array();
        for (const Destination& destination : destinations()) {
            checks.push_back(check_document(check_file(destination, facts), facts,
                                            contains(asked, destination.word)));
        }
        document["destinations"] = checks;
    }
    document.update(to_json(facts, curves));
    return document;
}

}  // namespace quorvane
