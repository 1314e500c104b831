#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "Common/files/numbers.h"

namespace level_engine {

/**
 * The numbers of a text file, separated by white space, up to the first word that is none. A file
 * that cannot be opened gives no numbers. One that opens and cannot be read to its end gives those
 * in front, and problem, unless it is null, receives path and cause; else "".
 */
std::vector<double> read_series(const std::string& path, std::string* problem = nullptr);

/** "" or, when a text file has had a read error: "error reading from PATH: CAUSE". */
std::string read_problem(const std::istream& file, const std::string& path);

/**
 * Writes a text file of one number per line. A full disk may show only when the last lines leave
 * the buffer: nothing is written well before close has said so.
 */
class SeriesWriter {
  public:
    /** As printf's %width.digitsf or %width.digitsg. */
    SeriesWriter(const std::string& path, Notation notation, int width, int digits);

    bool is_open() const { return file_.is_open(); }

    void write(double value);

    /** Returns "" or what went wrong: "error writing to PATH: CAUSE". */
    std::string close();

  private:
    std::string path_;
    Notation notation_;
    int width_;
    int digits_;
    std::ofstream file_;
};

/** Closes a text file; the same texts. */
std::string close_text(std::ofstream& file, const std::string& path);

}  // namespace level_engine

using level_engine::close_text;
using level_engine::read_problem;
using level_engine::read_series;
using level_engine::SeriesWriter;
