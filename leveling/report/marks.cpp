#include "leveling/report/marks.h"

#include <fmt/format.h>

#include <algorithm>

#include "leveling/advice/advice_table.h"
#include "leveling/facts/finding_json.h"
#include "leveling/report/html.h"
#include "leveling/words/text.h"

namespace quorvane {
namespace {

constexpr std::size_t kMostMarks = 8;  // of one finding

std::string name_of_finding(const Finding& finding) {
    const Advice* advice = find_advice(finding.code);
    return advice ? advice->title : finding.code;
}

}  // namespace

std::string place_marks(const Finding& finding) {
    std::string marks;
    for (std::size_t i = 0; i < std::min(finding.places.size(), kMostMarks); ++i) {
        const double from_s = finding.places[i].from_s;
        marks += fmt::format(
            " <button type=\"button\" class=\"mark\" disabled data-at=\"{:.2f}\">{}</button>",
            from_s, clock_text(from_s));
    }
    return marks.empty() ? "" : "<p class=\"marks\">At" + marks + "</p>\n";
}

std::string pins(const FileFacts& facts) {
    std::string marks;
    // The gravest ones last, so that they lie above the others.
    for (auto finding = facts.findings.rbegin(); finding != facts.findings.rend(); ++finding) {
        for (std::size_t i = 0; i < std::min(finding->places.size(), kMostMarks); ++i) {
            const double from_s = finding->places[i].from_s;
            const std::string words =
                escape_html(fmt::format("{}: {} at {}", to_text(finding->severity),
                                        name_of_finding(*finding), clock_text(from_s)));
            marks += fmt::format(
                "<button type=\"button\" class=\"pin {}\" disabled data-at=\"{:.2f}\" "
                "style=\"left:{:.2f}%\" aria-label=\"{}\" title=\"{}\"></button>\n",
                to_text(finding->severity), from_s,
                100 * std::clamp(from_s / facts.duration_s(), 0.0, 1.0), words, words);
        }
    }
    return marks.empty() ? "" : "<div class=\"pins\">\n" + marks + "</div>\n";
}

}  // namespace quorvane
