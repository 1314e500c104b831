#pragma once

#include <string>

namespace quorvane {

/** Columns that the text takes on a terminal (UTF-8; wide characters count 2). */
std::size_t display_width(const std::string& text);

/**
 * The text with "?" for every control character, every sign that turns the direction of writing and
 * every byte that is no UTF-8, so that a file name cannot drive the terminal or pose as another.
 */
std::string printable(const std::string& text);

/** The same with every line end kept. */
std::string printable_lines(const std::string& text);

/** Exactly so many columns: cut in the middle with "…", or filled with spaces on the right. */
std::string fit(const std::string& text, std::size_t columns);

/** "0:07", "12:34", "1:02:03". */
std::string clock_text(double seconds);

/** The time of day in UTC after ISO 8601: "2026-11-22T12:30:00Z". */
std::string utc_time_now();

}  // namespace quorvane
