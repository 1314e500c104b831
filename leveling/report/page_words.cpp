#include "leveling/report/page_words.h"

#include <fmt/format.h>

#include <cctype>
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

std::string name_of_output(const FileFacts& facts) {
    return std::filesystem::path(facts.output).filename().string();
}

std::string link_to(const std::string& name) {
    std::string link;
    for (char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte < 0x80 && isalnum(byte)) || c == '.' || c == '-' || c == '_';
        link += plain ? std::string(1, c) : fmt::format("%{:02X}", byte);
    }
    return link;
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

// Of less than 0.4 s there is a peak, and no loudness.
std::string level_html(const FileFacts& facts, double Loudness::*field) {
    const Loudness& last = facts.after ? *facts.after : *facts.before;
    if (field == &Loudness::integrated_lufs && !std::isfinite(last.integrated_lufs) &&
        std::isfinite(last.sample_peak_dbfs)) {
        return "–";
    }
    const std::string now = shown(last.*field);
    return facts.after ? fmt::format("<small>{} →</small> {}", shown((*facts.before).*field), now)
                       : now;
}

std::string footer() {
    return std::string("<footer>Loudness after ITU-R BS.1770 and EBU R 128. Written by quorvane ") +
           kVersion + ".</footer>\n";
}

}  // namespace quorvane
