#pragma once

#include <string>
#include <vector>

#include "leveling/facts/finding.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/** Who reads an advice: it names an option, a button, or neither. */
enum class Face { CommandLine, Window, Page };

/** "the right side is silent": for a place behind a colon, without a full stop. */
std::string clause_of(const Finding& finding);

/** "The right side is silent." */
std::string sentence_of(const Finding& finding);

/** What to do with the recording, "" where there is nothing to do. */
std::string advice_of(const Finding& finding, Face face);

/** The first places in time, "0:12, 3:40 and 7 more"; "" where the whole recording is meant. */
std::string places_of(const Finding& finding);

/** What stands between a recording and a plain "Ready": problems and warnings, no notes. */
std::vector<const Finding*> objections(const FileFacts& facts);

bool has_problem(const FileFacts& facts);

/** The clauses of the objections, "the right side is silent, it is only 1.0 s long". */
std::string objections_text(const FileFacts& facts);

}  // namespace quorvane
