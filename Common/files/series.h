#pragma once

#include <fstream>
#include <string>
#include <vector>

#include "Common/files/numbers.h"

namespace level_engine {

/**
 * Reads the numbers of a text file, separated by white space, up to the first word that is not a
 * number. A file that cannot be opened gives no numbers. After a read error it returns the numbers
 * before it, and problem, unless null, receives path and cause; otherwise "".
 */
std::vector<double> read_series(const std::string& path, std::string* problem = nullptr);

/** "" or, when a text file has had a read error: "error reading from PATH: CAUSE". */
std::string read_problem(const std::istream& file, const std::string& path);

/**
 * Writes a text file of one number per line. A full disk may show only when the buffer is flushed:
 * the file is complete only if close returns "".
 */
class SeriesWriter {
  public:
    /** As printf's %width.digitsf or %width.digitsg. */
    SeriesWriter(const std::string& path, Notation notation, int width, int digits);

    bool is_open() const { return file_.is_open(); }

    void write(double value);

    /** Returns "" on success or the error: "error writing to PATH: CAUSE". */
    std::string close();

  private:
    std::string path_;
    Notation notation_;
    int width_;
    int digits_;
    std::ofstream file_;
};

/** Closes a text file; returns the same texts. */
std::string close_text(std::ofstream& file, const std::string& path);

}  // namespace level_engine

using level_engine::close_text;
using level_engine::read_problem;
using level_engine::read_series;
using level_engine::SeriesWriter;
