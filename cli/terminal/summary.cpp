#include "cli/terminal/summary.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <cmath>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "cli/terminal/note_lines.h"
#include "leveling/facts/file_error.h"
#include "leveling/words/levels.h"
#include "leveling/words/text.h"

/*
 * The table takes the width it is given: its columns shrink from pairs with air to pairs without,
 * and below that each file gets a few lines of its own. Names are cut in the middle, where they say
 * least.
 */

namespace quorvane {
namespace {

// Widths, in columns of the terminal.
constexpr std::size_t kNumberColumns = 5;  // "-70.0"
constexpr std::size_t kSingleColumns = 9;  // where each number has a title of its own
// A name is cut in its middle below the larger number, and never below the smaller one.
constexpr std::size_t kLeastNameColumns = 13;
constexpr std::size_t kMostNameColumns = 48;

using Value = std::function<std::string(const FileFacts&)>;

/** A number of the table: two lines of heading, or three where numbers come in pairs. */
struct Column {
    const char* group;  // empty: belongs to the group on its left
    const char* unit;
    const char* title;
    Value value;
};

/** A measured number with one decimal; "-" where the file has none. */
Value of(std::optional<Loudness> FileFacts::*when, double Loudness::*field) {
    return [=](const FileFacts& facts) {
        return facts.*when ? decimal((*(facts.*when)).*field) : std::string("-");
    };
}

/** A gain with its sign. */
Value of(double Leveling::*field) {
    return [=](const FileFacts& facts) {
        return facts.leveling ? signed_decimal((*facts.leveling).*field) : std::string("-");
    };
}

/** Where no file has an after, nothing was leveled: single numbers, and more of them. */
std::vector<Column> columns_for(const FactsList& files) {
    const auto before = &FileFacts::before;
    const auto after = &FileFacts::after;
    const bool analyzed = std::none_of(
        files.begin(), files.end(), [](const FileFacts& facts) { return facts.after.has_value(); });
    if (analyzed) {
        return {{"Loudness", "LUFS", "", of(before, &Loudness::integrated_lufs)},
                {"Range", "LU", "", of(before, &Loudness::range_lu)},
                {"True peak", "dBTP", "", of(before, &Loudness::true_peak_dbtp)},
                {"Peak", "dBFS", "", of(before, &Loudness::sample_peak_dbfs)},
                {"RMS", "dBFS", "", of(before, &Loudness::rms_dbfs)},
                {"Pauses", "dBFS", "", of(before, &Loudness::pauses_dbfs)}};
    }
    return {{"Loudness", "LUFS", "was", of(before, &Loudness::integrated_lufs)},
            {"", "", "now", of(after, &Loudness::integrated_lufs)},
            {"Range", "LU", "was", of(before, &Loudness::range_lu)},
            {"", "", "now", of(after, &Loudness::range_lu)},
            {"True peak", "dBTP", "was", of(before, &Loudness::true_peak_dbtp)},
            {"", "", "now", of(after, &Loudness::true_peak_dbtp)},
            {"Peak", "dBFS", "was", of(before, &Loudness::sample_peak_dbfs)},
            {"", "", "now", of(after, &Loudness::sample_peak_dbfs)},
            {"Leveling gain", "dB", "mean", of(&Leveling::mean_gain_db)},
            {"", "", "least", of(&Leveling::least_gain_db)},
            {"", "", "most", of(&Leveling::greatest_gain_db)}};
}

/** Flush right, by what the text takes on the screen and not by its bytes. */
std::string right(const std::string& text, std::size_t columns) {
    const std::size_t width = display_width(text);
    return std::string(columns > width ? columns - width : 0, ' ') + text;
}

/** Spaces at a line's end wrap in a terminal that is made narrower. */
std::string trimmed(std::string line) {
    // Of spaces alone nothing is left: npos + 1 is 0.
    line.erase(line.find_last_not_of(' ') + 1);
    return line + "\n";
}

/** A line for each file. shared: bytes at the start of every path that are not shown. */
std::string wide_table(const FactsList& files,
                       const std::vector<Column>& columns,
                       std::size_t name_columns,
                       std::size_t number_columns,
                       std::size_t shared) {
    // The column of names has no group and no unit.
    std::string groups = fit("", name_columns);
    std::string units = groups;
    std::string titles = fit("File", name_columns);
    for (std::size_t i = 0; i < columns.size(); ++i) {
        // A group's title and unit stand over all of its columns.
        std::size_t span = 1;
        while (i + span < columns.size() && !*columns[i + span].group) {
            ++span;
        }
        if (*columns[i].group) {
            // 1: the space in front of each number.
            groups += right(columns[i].group, span * (number_columns + 1));
            units += right(columns[i].unit, span * (number_columns + 1));
        }
        titles += " " + right(columns[i].title, number_columns);
    }
    std::string table = trimmed(groups) + trimmed(units) + trimmed(titles);
    for (const FileFacts& facts : files) {
        // Not measured, so without numbers; the counts include it.
        if (!facts.before) {
            continue;
        }
        table += fit(printable(facts.input.substr(shared)), name_columns);
        for (const Column& column : columns) {
            table += " " + right(column.value(facts), number_columns);
        }
        table += "\n";
    }
    return table;
}

/** How much of the paths is a folder that all of them share. */
std::size_t shared_folder(const FactsList& files) {
    std::size_t shared = std::string::npos;
    std::optional<std::string> first;
    for (const FileFacts& facts : files) {
        if (!facts.before) {
            continue;
        }
        if (!first) {
            first = facts.input;
        }
        // What is shared can only become shorter from file to file.
        std::size_t same = 0;
        const std::size_t most = std::min({shared, first->size(), facts.input.size()});
        while (same < most && (*first)[same] == facts.input[same]) {
            ++same;
        }
        // Whole folders only: "a/talk-1" and "a/talk-2" share "a/".
        const std::size_t slash = same ? facts.input.rfind('/', same - 1) : std::string::npos;
        shared = slash == std::string::npos ? 0 : slash + 1;
    }
    return first ? shared : 0;
}

/** A few lines for each file, for a terminal in which the table has no room. */
std::string narrow_table(const FactsList& files, std::size_t columns) {
    constexpr std::size_t kIndent = 2;
    std::string table;
    // An indented line, cut to the terminal's width: title, values, unit.
    const auto add = [&](const char* title, const std::string& values, const char* unit) {
        table += trimmed(
            fit(fmt::format("{:{}}{:<10}{} {}", "", kIndent, title, values, unit), columns));
    };
    for (const FileFacts& facts : files) {
        if (!facts.before) {
            continue;
        }
        table += trimmed(fit(printable(facts.input), columns));
        // One number, or two where the file was leveled: "-23.1 > -16.0".
        const auto both = [&](double Loudness::*field) {
            std::string text = decimal((*facts.before).*field);
            if (facts.after) {
                text += " > " + decimal((*facts.after).*field);
            }
            return text;
        };
        add("loudness", both(&Loudness::integrated_lufs), "LUFS");
        add("range", both(&Loudness::range_lu), "LU");
        add("true peak", both(&Loudness::true_peak_dbtp), "dBTP");
        add("peak", both(&Loudness::sample_peak_dbfs), "dBFS");
        if (facts.leveling) {
            add("gain", gain_text(*facts.leveling), "dB");
        }
    }
    return table;
}

/** The first files that were not finished, and how to go on. */
void print_interrupted(const FactsList& files, Screen& screen) {
    // More names would push the rest of the summary out of sight.
    constexpr std::size_t kMostNamed = 10;
    std::size_t interrupted = 0;
    for (const FileFacts& facts : files) {
        if (facts.outcome == Outcome::Interrupted && ++interrupted <= kMostNamed) {
            screen.line(fmt::format("not finished {}", printable(facts.input)));
        }
    }
    if (interrupted > kMostNamed) {
        screen.line(fmt::format("not finished {} more", interrupted - kMostNamed));
    }
    if (interrupted != 0) {
        screen.line("the same command goes on where this one stopped");
    }
}

}  // namespace

// No column is dropped: where they do not fit, each file gets lines instead of a row.
std::string loudness_table(const FactsList& files, std::size_t columns) {
    const std::size_t shared = shared_folder(files);
    std::size_t longest = 0;
    for (const FileFacts& facts : files) {
        if (facts.before) {
            longest = std::max(longest, display_width(printable(facts.input.substr(shared))));
        }
    }
    if (longest == 0) {
        return "";
    }
    const std::vector<Column> table_columns = columns_for(files);
    // As wide as the longest name needs, within limits; the numbers come first.
    const std::size_t wanted = std::clamp(longest, kLeastNameColumns, kMostNameColumns);
    // In a table of pairs each number has a title, "was" or "now"; otherwise none has.
    const bool pairs = table_columns.front().title[0] != '\0';
    std::size_t number_columns = pairs ? kNumberColumns : kSingleColumns;
    // Two columns of air for each number where there is room for them.
    // 3: the space in front of a number, and the two.
    if (table_columns.size() * (number_columns + 3) + wanted <= columns) {
        number_columns += 2;
    }
    const std::size_t numbers = table_columns.size() * (number_columns + 1);
    // Too narrow for the numbers beside the shortest name.
    if (columns < numbers + kLeastNameColumns) {
        return narrow_table(files, columns);
    }
    return wide_table(files, table_columns, std::min(wanted, columns - numbers), number_columns,
                      shared);
}

// In the order from what is done to what is not.
std::string counts(const FactsList& files) {
    // What did not happen is not mentioned.
    std::map<Outcome, std::size_t> count_of;
    for (const FileFacts& facts : files) {
        ++count_of[facts.outcome];
    }
    std::vector<std::string> parts;
    const auto add = [&](Outcome outcome, const char* text) {
        if (const std::size_t count = count_of[outcome]; count != 0) {
            parts.push_back(fmt::format("{} {}", count, text));
        }
    };
    add(Outcome::Leveled, "leveled");
    add(Outcome::Analyzed, "measured");
    add(Outcome::Copied, "copied unchanged");
    add(Outcome::UpToDate, "up to date");
    add(Outcome::Skipped, "skipped");
    add(Outcome::Planned, "to be done");
    add(Outcome::Failed, "failed");
    add(Outcome::Damaged, "damaged");
    add(Outcome::Interrupted, "not finished");
    return parts.empty() ? "nothing to do" : boost::algorithm::join(parts, ", ");
}

// The status word comes first, so that lines can be sorted and searched by it.
std::string finished_line(const FileFacts& facts, const Screen& screen) {
    // Names come from outside: nothing in them may move the cursor or change colors.
    const std::string input = printable(facts.input);
    const std::string output = printable(facts.output);
    // 32 is green (done), 33 yellow (not leveled), 31 red (failed).
    switch (facts.outcome) {
        case Outcome::Leveled: {
            // A mix is made of all tracks, so it shows their number and no input.
            if (facts.conversation && facts.conversation->mix) {
                return fmt::format("{} {} tracks > {} ({})", screen.paint("mixed", "32"),
                                   facts.conversation->tracks, output, clock_text(facts.elapsed_s));
            }
            std::string loudness;
            // A clip of less than 0.4 s has none.
            if (facts.before && facts.after && std::isfinite(facts.after->integrated_lufs)) {
                loudness = fmt::format(", {} > {} LUFS", decimal(facts.before->integrated_lufs),
                                       decimal(facts.after->integrated_lufs));
            }
            return fmt::format("{} {} > {} ({}{})", screen.paint("leveled", "32"), input, output,
                               clock_text(facts.elapsed_s), loudness);
        }
        case Outcome::Analyzed:
            return fmt::format("{} {}", screen.paint("measured", "32"), input);
        case Outcome::Copied:
            return fmt::format("{} {} > {}: {}", screen.paint("copied unchanged", "33"), input,
                               output, printable(facts.cause));
        case Outcome::UpToDate:
            return fmt::format("{} {} > {}", screen.paint("up to date", "32"), input, output);
        case Outcome::Planned:
            return fmt::format("would level {} > {}", input, output);
        case Outcome::Skipped:
            return fmt::format("{} {}: {}", screen.paint("skipped", "33"), input,
                               printable(facts.cause));
        case Outcome::Failed:
            return fmt::format("{} {}: {}", screen.paint("failed", "31"), input,
                               printable(facts.cause));
        case Outcome::Damaged:
            return fmt::format("{} {}: {}", screen.paint("damaged", "31"), input,
                               printable(facts.cause));
        case Outcome::Interrupted:
            return fmt::format("{} {}", screen.paint("not finished", "33"), input);
    }
    // Reached only with a value outside of the enumeration.
    return "";
}

// Failures before notes: what needs action stands nearest to the counts.
void print_summary(const FactsList& files, double elapsed_s, Screen& screen) {
    screen.line(fmt::format("{} in {}", counts(files), clock_text(elapsed_s)));
    print_failures(files, screen);
    print_notes(files, screen);
    print_interrupted(files, screen);
}

// All of them have the same cause, so one name is enough to find the folder.
std::string shared_failure_line(std::size_t count, const FileFacts& first, const Screen& screen) {
    return fmt::format("{} {} files, the first {}: {}", screen.paint("failed", "31"), count,
                       printable(first.input), printable(first.cause));
}

// Repeated at the end: in a long run the lines of single failures have scrolled away.
void print_failures(const FactsList& files, Screen& screen) {
    // Lines and not files: the failures of a folder share one.
    constexpr std::size_t kMostListed = 20;
    std::map<std::string, std::size_t> sharing;  // by the cause of a folder
    for (const FileFacts& facts : files) {
        if (is_failure(facts.outcome) && is_folder_cause(facts.cause)) {
            ++sharing[facts.cause];
        }
    }
    std::size_t lines = 0;
    std::size_t others = 0;
    for (const FileFacts& facts : files) {
        std::size_t count = is_failure(facts.outcome) ? 1 : 0;
        if (const auto shared = sharing.find(facts.cause); count != 0 && shared != sharing.end()) {
            // The first of them prints the line for all; those behind it find 0.
            count = std::exchange(shared->second, 0);
        }
        if (count == 0) {
            continue;
        }
        if (++lines > kMostListed) {
            others += count;
        } else {
            screen.line(count == 1 ? finished_line(facts, screen)
                                   : shared_failure_line(count, facts, screen));
        }
    }
    if (others != 0) {
        screen.line(fmt::format("failed {} more (--failed FILE lists them all)", others));
    }
}

// Videos and the like in a folder that was named; not failures, as no one named them.
void print_unsupported(const std::vector<std::filesystem::path>& files, Screen& screen) {
    if (files.empty()) {
        return;
    }
    std::string names;
    for (const std::filesystem::path& file : files) {
        names += (names.empty() ? "" : ", ") + printable(file.string());
    }
    screen.line(fmt::format("{} file{} not supported: {}", files.size(),
                            files.size() == 1 ? "" : "s", names));
}

}  // namespace quorvane
