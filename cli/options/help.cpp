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
    if (row.argument[0] == '[') {
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
    po::options_description description(title(group), kHelpWidth, kHelpTextWidth);
    for (const OptionRow& row : option_table()) {
        if (row.group == group) {
            add(row, description);
        }
    }
    return description;
}

std::string help_text() {
    std::ostringstream out;
    out << "quorvane evens out the loudness of spoken-word recordings.\n"
           "\n"
           "  quorvane talk.wav                            writes talk-leveled.wav\n"
           "  quorvane --for podcast -d ready season/      levels a folder, ready to upload\n"
           "  quorvane --analyze --report r.html talk.wav  measures and shows, writes no audio\n"
           "\n"
           "Usage: quorvane [options] PATH...              levels files, and folders with all "
           "below\n"
           "       quorvane --watch DIR [options]          levels the recordings that arrive\n"
           "       quorvane [options] - < IN > OUT         levels in a pipe\n"
           "       quorvane merge RESULTS... [options]     combines the results of several runs;\n"
           "                                               see 'quorvane merge --help'\n"
           "       quorvane --input-file IN --output-file OUT [engine options]\n"
           "                                               the engine alone; see\n"
           "                                               'quorvane --input-file= --help'\n"
           "\n"
           "An input is never changed. An existing output is kept, unless an option says "
           "otherwise.\n";
    for (OptionGroup group : option_groups()) {
        out << "\n" << describe(group);
    }
    out << "\n"
           "Exit status: 0 success, 1 a file failed or is damaged, 2 wrong usage, 4 a file does "
           "not\n"
           "meet its delivery target or has a problem with --strict, 130 interrupted.\n";
    return out.str();
}

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
    out << "Combines the JSON results of several runs into one summary, report and JSON file.\n"
           "\n"
           "  quorvane merge monday.jsonl tuesday.jsonl\n"
           "  quorvane merge plan.jsonl part-*.jsonl --report report/\n"
           "  quorvane merge part-*.jsonl --json all.jsonl --csv all.csv\n"
           "\n"
           "Usage: quorvane merge RESULTS... [options]\n"
           "\n"
           "RESULTS are files that --json wrote. The last result of an input counts. A plan\n"
           "(--dry-run --json) that comes first gives the order; a file of the plan without a "
           "result\n"
           "makes the exit status 1, and so does an incomplete line.\n"
           "A recording that is named merge is given as ./merge.\n"
           "\n"
        << options
        << "\n"
           "Exit status: 0 success, 1 a file failed or a result is missing, 2 wrong usage, 4 a "
           "file\n"
           "does not meet its delivery target or has a problem with --strict.\n";
    return out.str();
}

}  // namespace quorvane
