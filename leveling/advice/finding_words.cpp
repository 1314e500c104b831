#include "leveling/advice/finding_words.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cmath>

#include "leveling/advice/advice_table.h"
#include "leveling/words/text.h"

namespace quorvane {
namespace {

constexpr std::size_t kMostPlaces = 3;  // in a sentence

/** So many decimals; what they would show as nothing keeps one digit, and zero has no sign. */
std::string value_text(double value, int decimals) {
    if (value == 0) {
        return "0";
    }
    const bool shows = std::fabs(value) >= 0.5 * std::pow(10, -decimals);
    return shows ? fmt::format("{:.{}f}", value, decimals) : fmt::format("{:.1g}", value);
}

}  // namespace

// Part of a sentence, without a capital and a full stop.
std::string clause_of(const Finding& finding) {
    const Advice* advice = find_advice(finding.code);
    if (!advice) {
        // Facts of a later version: its code is all that is known here.
        return fmt::format("{} ({:g} {})", finding.code, finding.value, finding.unit);
    }
    const std::string value = value_text(finding.value, advice->decimals);
    return fmt::format(
        fmt::runtime(advice->clause), fmt::arg("value", value), fmt::arg("unit", finding.unit),
        fmt::arg("detail", finding.detail),
        fmt::arg("against",
                 fmt::format("{} {} {}", value_text(std::fabs(finding.value), advice->decimals),
                             finding.unit, finding.value < 0 ? "under" : "over")));
}

std::string sentence_of(const Finding& finding) {
    std::string text = clause_of(finding);
    text[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(text[0])));
    return text + ".";
}

// Each face has its own words: a window has no options to name.
std::string advice_of(const Finding& finding, Face face) {
    const Advice* advice = find_advice(finding.code);
    if (!advice) {
        return "";
    }
    return face == Face::CommandLine ? advice->command_line
           : face == Face::Window    ? advice->window
                                     : advice->page;
}

// Where they begin; a listener looks for the place by hearing.
std::string places_of(const Finding& finding) {
    std::string text;
    const std::size_t count = finding.places.size();
    for (std::size_t i = 0; i < std::min(count, kMostPlaces); ++i) {
        text += (i == 0 ? "" : ", ") + clock_text(finding.places[i].from_s);
    }
    return count > kMostPlaces ? text + fmt::format(" and {} more", count - kMostPlaces) : text;
}

// Notes are not among them: they only say what is good to know.
std::vector<const Finding*> objections(const FileFacts& facts) {
    std::vector<const Finding*> found;
    for (const Severity severity : {Severity::Problem, Severity::Warning}) {
        for (const Finding& finding : facts.findings) {
            if (finding.severity == severity) {
                found.push_back(&finding);
            }
        }
    }
    return found;
}

bool has_problem(const FileFacts& facts) {
    return std::any_of(facts.findings.begin(), facts.findings.end(), [](const Finding& finding) {
        return finding.severity == Severity::Problem;
    });
}

std::string objections_text(const FileFacts& facts) {
    const std::vector<const Finding*> found = objections(facts);
    std::string text;
    for (const Finding* finding : found) {
        const char* before = text.empty() ? "" : finding == found.back() ? ", and " : ", ";
        text += before + clause_of(*finding);
    }
    return text;
}

}  // namespace quorvane
