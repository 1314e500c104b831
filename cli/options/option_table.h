#pragma once

#include <string>
#include <vector>

/*
 * One table for all: a new option is one row, and the parser, the help, the manual page and the
 * completions of three shells have it. A test compares them.
 */

namespace quorvane {

/** The groups of --help, in its order. First: what newcomers need. Tuning: passed to the engine. */
enum class OptionGroup { First, Output, Work, Facts, Display, Tuning, Other };

/** What a shell may offer after the option. */
enum class Completion {
    None,
    File,
    Directory,
    When,
    BitDepth,
    CostFunction,
    Destination,
    Finding,
    Channels
};

/**
 * One option of the program. The parser, the help, the manual page and the shells' completions are
 * all made from this table.
 */
struct OptionRow {
    OptionGroup group;
    std::string name;
    char letter;           // 0: none
    std::string argument;  // empty: takes no value; "[CODE]": one that may be left out
    Completion completion;
    std::string help;
};

/** The tuning options in it are the engine's own. */
const std::vector<OptionRow>& option_table();

/** A group's heading, without a colon. */
const char* title(OptionGroup group);
/** All groups, in the order in which they are shown. */
const std::vector<OptionGroup>& option_groups();

/** The words that a shell offers for a value; empty for free text and paths. */
std::vector<const char*> choices(Completion completion);

}  // namespace quorvane
