#include "leveling/report/page_words.h"

#include <fmt/format.h>

#include <cmath>
#include <filesystem>

#include "Common/version.h"
#include "leveling/publish/verdict.h"
#include "leveling/report/html.h"
#include "leveling/words/levels.h"

namespace quorvane {

std::string name_of(const FileFacts& facts) {
    return std::filesystem::path(facts.input).filename().string();
}

std::string outcome_text(const FileFacts& facts) {
    switch (facts.outcome) {
        case Outcome::Leveled:
            return "leveled";
        case Outcome::Copied:
            return "copied unchanged";
        case Outcome::Analyzed:
            return "measured";
        case Outcome::UpToDate:
            return "up to date";
        case Outcome::Skipped:
            return "skipped";
        case Outcome::Planned:
            return "planned";
        case Outcome::Failed:
            return "failed";
        case Outcome::Damaged:
            return "damaged";
        case Outcome::Interrupted:
            return "not finished";
    }
    return "";
}

VerdictColor verdict_color(const FileFacts& facts, const ReportOptions& options) {
    if (!facts.is_track() && !is_ready(facts, options.destinations)) {
        return VerdictColor::NotReady;
    }
    return objections(facts).empty() ? VerdictColor::Ready : VerdictColor::ReadyBut;
}

std::string verdict_html(const std::string& text,
                         const ReportOptions& options,
                         VerdictColor color) {
    const char* style = options.destinations.empty()      ? ""
                        : color == VerdictColor::Ready    ? " ready"
                        : color == VerdictColor::ReadyBut ? " but"
                                                          : " missing";
    return fmt::format("<p class=\"verdict{}\">{}</p>\n", style, escape_html(text));
}

std::string shown(double value) {
    return std::isfinite(value) ? decimal(value) : "silent";
}

std::string footer() {
    return std::string("<footer>Loudness after ITU-R BS.1770 and EBU R 128. Written by quorvane ") +
           kVersion + ".</footer>\n";
}

std::string shown_gain(double value) {
    const double rounded = std::round(value * 10) / 10;
    return rounded == 0 ? "0.0" : fmt::format("{:+.1f}", rounded);
}

}  // namespace quorvane
