#include "cli/options/help.h"

#include <set>
#include <sstream>

namespace quorvane {
namespace po = boost::program_options;

namespace {

constexpr unsigned kHelpWidth = 90;      // columns
constexpr unsigned kHelpTextWidth = 48;  // the least of them for explanations

/** One row of the table as the parser and the help need it. */
void add(const OptionRow& row, po::options_description& description) {
    std::string names = row.name;
    if (row.letter) {
        names += std::string(",") + row.letter;
    }
    if (row.argument.rfind('[', 0) == 0) {
        // An optional argument: without "=" it is read as a PATH.
        description.add_options()(
            names.c_str(), po::value<std::string>()->implicit_value("")->value_name(row.argument),
            row.help.c_str());
    } else if (!row.argument.empty()) {
        description.add_options()(names.c_str(), po::value<std::string>()->value_name(row.argument),
                                  row.help.c_str());
    } else {
        description.add_options()(names.c_str(), row.help.c_str());
    }
}

}  // namespace

po::options_description describe(OptionGroup group) {
    // The library wraps the explanations to these widths.
    po::options_description description(title(group), kHelpWidth, kHelpTextWidth);
    for (const OptionRow& row : option_table()) {
        if (row.group == group) {
            add(row, description);
        }
    }
    return description;
}

// Examples first: a newcomer copies one and reads the options later.
std::string help_text() {
    std::ostringstream out;
    out << R"(quorvane evens out the loudness of spoken-word recordings.

  quorvane talk.wav                            writes talk-leveled.wav
  quorvane --for podcast -d ready season/      levels a folder, ready to upload
  quorvane --analyze --report r.html talk.wav  measures and shows, writes no audio

Usage: quorvane [options] PATH...          levels files, and folders with all below
       quorvane --watch DIR [options]      levels recordings as they arrive
       quorvane [options] - < IN > OUT     levels in a pipe
       quorvane merge RESULTS... [options] combines the results of several runs;
                                           see 'quorvane merge --help'
       quorvane --input-file IN --output-file OUT [engine options]
                                           the engine alone;
                                           see 'quorvane --input-file= --help'

An input is never changed. An existing output is kept, unless an option says otherwise.
)";
    for (OptionGroup group : option_groups()) {
        out << "\n" << describe(group);
    }
    out << R"(
Exit status: 0 success, 1 a file failed or is damaged, 2 wrong usage, 4 a file does not
meet its delivery target or has a problem with --strict, 130 interrupted.
)";
    return out.str();
}

// Only what a merge uses: most options are about leveling, and would be refused or ignored.
std::string merge_help_text() {
    static const std::set<std::string> names = {"for",    "report", "no-listen", "json", "csv",
                                                "failed", "null",   "no-curves", "log",  "strict",
                                                "quiet",  "color",  "help"};
    po::options_description options("Options", kHelpWidth, kHelpTextWidth);
    for (const OptionRow& row : option_table()) {
        if (names.count(row.name)) {
            add(row, options);
        }
    }
    std::ostringstream out;
    out << R"(Combines the JSON results of several runs into one summary, report and JSON file.

  quorvane merge monday.jsonl tuesday.jsonl
  quorvane merge plan.jsonl part-*.jsonl --report report/
  quorvane merge part-*.jsonl --json all.jsonl --csv all.csv

Usage: quorvane merge RESULTS... [options]

RESULTS are files that --json wrote. The last result of an input counts. A plan
(--dry-run --json) that comes first gives the order; a file of the plan without a result
makes the exit status 1, and so does an incomplete line. Each run names its inputs in its
own way, so runs in several folders need absolute paths.
A recording that is named merge is given as ./merge.

)" << options
        << R"(
Exit status: 0 success, 1 a file failed or a result is missing, 2 wrong usage, 4 a file
does not meet its delivery target or has a problem with --strict.
)";
    return out.str();
}

}  // namespace quorvane
