#include "cli/terminal/finding_lines.h"

#include <fmt/format.h>

#include <map>
#include <string>
#include <vector>

#include "leveling/advice/finding_words.h"
#include "leveling/facts/finding_json.h"
#include "leveling/words/text.h"

namespace quorvane {
namespace {

// Lines for one code; what an archive has in common is one line more.
constexpr std::size_t kMostOfACode = 3;

/** The severity as a word, red or yellow; a note has no color. */
std::string painted(Severity severity, const Screen& screen) {
    const char* color = severity == Severity::Problem ? "31" : "33";
    return severity == Severity::Note ? to_text(severity) : screen.paint(to_text(severity), color);
}

/** "problem: 8.8 % of the recording is clipped (0:12, 0:40). Repair it ... (--explain clipped)" */
std::string full_line(const Finding& finding, const Screen& screen) {
    const std::string places = places_of(finding);
    const std::string advice = advice_of(finding, Face::CommandLine);
    return fmt::format("{}: {}{}.{} (quorvane --explain {})", painted(finding.severity, screen),
                       printable(clause_of(finding)), places.empty() ? "" : " (at " + places + ")",
                       advice.empty() ? "" : " " + advice, printable(finding.code));
}

/** The findings of the only file, with their advice. */
void print_one(const FileFacts& facts, Screen& screen) {
    for (const Severity severity : {Severity::Problem, Severity::Warning, Severity::Note}) {
        for (const Finding& finding : facts.findings) {
            if (finding.severity == severity) {
                screen.line(full_line(finding, screen));
            }
        }
    }
}

/** The files that share a code. */
struct Sharing {
    std::size_t count = 0;
    std::vector<std::string> lines;  // of the first ones
};

/** The lines of one code, and how many more files have it. */
void print_sharing(const Sharing& sharing, const std::string& code, Screen& screen) {
    for (const std::string& line : sharing.lines) {
        screen.line(line);
    }
    if (const std::size_t others = sharing.count - sharing.lines.size(); others != 0) {
        screen.line(fmt::format("the same of {} more file{} (quorvane --explain {})", others,
                                others == 1 ? "" : "s", printable(code)));
    }
}

}  // namespace

// Notes of several files are left out: they are in the report and in the JSON.
void print_findings(const FactsList& files, Screen& screen) {
    if (files.size() == 1) {
        return print_one(*files.begin(), screen);
    }
    for (const Severity severity : {Severity::Problem, Severity::Warning}) {
        std::map<std::string, Sharing> by_code;
        for (const FileFacts& facts : files) {
            for (const Finding& finding : facts.findings) {
                if (finding.severity != severity) {
                    continue;
                }
                Sharing& sharing = by_code[finding.code];
                if (++sharing.count <= kMostOfACode) {
                    sharing.lines.push_back(
                        fmt::format("{}: {}: {} (quorvane --explain {})", painted(severity, screen),
                                    printable(facts.input), printable(clause_of(finding)),
                                    printable(finding.code)));
                }
            }
        }
        for (const auto& [code, sharing] : by_code) {
            print_sharing(sharing, code, screen);
        }
    }
}

}  // namespace quorvane
