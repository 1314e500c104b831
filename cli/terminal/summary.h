#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "cli/terminal/screen.h"
#include "leveling/facts/facts_list.h"
#include "leveling/facts/run_facts.h"

/*
 * What a run has to say in words: a line for each file as it ends, the table of loudness, and the
 * counts with the notes. Every name that came from outside goes through printable().
 */

namespace quorvane {

/**
 * The loudness table, as wide as the columns allow; below 79 columns each file gets a few
 * lines of its own. Empty when nothing was measured.
 */
std::string loudness_table(const FactsList& files, std::size_t columns);

/** The line for a file that just finished. */
std::string finished_line(const FileFacts& facts, const Screen& screen);

/** "3 leveled, 1 failed". */
std::string counts(const FactsList& files);

/**
 * The counts of a run, "3 leveled, 1 failed in 0:12", then the failures, the notes, and the files
 * that an interrupt left unfinished with the way to go on.
 */
void print_summary(const FactsList& files, double elapsed_s, Screen& screen);

/**
 * The first failures, each on a line, and the number of the others. Files whose folder cannot be
 * written share a line.
 */
void print_failures(const FactsList& files, Screen& screen);

/** "306 files, the first talk.wav: ...", for files that fail for one cause of their folder. */
std::string shared_failure_line(std::size_t count, const FileFacts& first, const Screen& screen);

/** "2 files not supported: a.flv, b.amr"; nothing for none. */
void print_unsupported(const std::vector<std::filesystem::path>& files, Screen& screen);

}  // namespace quorvane
