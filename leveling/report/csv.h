#pragma once

#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

/*
 * The facts of a run as a table for spreadsheets, after RFC 4180: commas, lines that end with CR
 * LF, quotes where a cell needs them; UTF-8. Columns keep their names and their order, new ones
 * come behind them. A level that does not exist, that of silence, is an empty cell.
 */

namespace quorvane {

/** The first cell of every such file. */
constexpr const char* kCsvStart = "input,";

/** The names of the columns, with the line end. */
std::string csv_header();

/** The row of a file. asked: the words of --for. */
std::string csv_row(const FileFacts& facts, const std::vector<std::string>& asked);

/**
 * Text as a cell. What a spreadsheet would take for a formula (=, +, -, @, tab or CR at the start)
 * gets an apostrophe in front; bytes that are no UTF-8 become replacement characters.
 */
std::string csv_text(const std::string& text);

}  // namespace quorvane
