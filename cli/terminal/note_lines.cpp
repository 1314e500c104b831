#include "cli/terminal/note_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "leveling/advice/notable_deeds.h"
#include "leveling/words/text.h"

namespace quorvane {
namespace {

/** Notes that differ in their numbers only are of one kind. */
std::string kind_of(const std::string& note) {
    std::string kind;
    std::copy_if(note.begin(), note.end(), std::back_inserter(kind),
                 [](char c) { return c < '0' || c > '9'; });
    return kind;
}

}  // namespace

// One line after an update of the program, which may concern a whole archive.
void print_earlier(const FactsList& files, Screen& screen) {
    const auto earlier = std::count_if(files.begin(), files.end(), [](const FileFacts& facts) {
        return facts.earlier_arithmetic;
    });
    if (earlier) {
        screen.line(fmt::format(
            "{} output{} made by an earlier version of the arithmetic {} kept (--redo-changed "
            "levels {} again; --plain is the arithmetic of 3.0)",
            earlier, earlier == 1 ? "" : "s", earlier == 1 ? "was" : "were",
            earlier == 1 ? "it" : "them"));
    }
}

// In the order in which the kinds came up.
void print_notes(const FactsList& files, Screen& screen) {
    print_earlier(files, screen);
    constexpr std::size_t kMostOfAKind = 3;

    struct Kind {
        std::size_t count = 0;
        std::vector<std::string> lines;  // of the first ones
    };

    std::vector<Kind> kinds;
    std::map<std::string, std::size_t> place_of;
    const auto add = [&](const FileFacts& facts, const std::string& note) {
        const auto [at, is_new] = place_of.emplace(kind_of(note), kinds.size());
        if (is_new) {
            kinds.emplace_back();
        }
        Kind& kind = kinds[at->second];
        if (++kind.count <= kMostOfAKind) {
            kind.lines.push_back(
                fmt::format("note: {}: {}", printable(facts.input), printable(note)));
        }
    };
    // Findings that are mere notes are shown for a single file only.
    const Severity least_shown = files.size() == 1 ? Severity::Note : Severity::Warning;
    for (const FileFacts& facts : files) {
        if (facts.conversation && facts.conversation->mix) {
            continue;  // its line says all there is
        }
        for (const std::string& note : facts.notes) {
            add(facts, note);
        }
        for (const Done& done : notable_deeds(facts, Phrasing::Notable, least_shown)) {
            add(facts, words_of(done));
        }
    }
    for (const Kind& kind : kinds) {
        for (const std::string& line : kind.lines) {
            screen.line(line);
        }
        if (const std::size_t others = kind.count - kind.lines.size(); others != 0) {
            screen.line(fmt::format("note: the same of {} more file{} (--json lists them all)",
                                    others, others == 1 ? "" : "s"));
        }
    }
}

}  // namespace quorvane
