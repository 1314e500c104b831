#pragma once

#include <cstddef>
#include <cstdint>
#include <istream>
#include <string>

namespace quorvane {

/**
 * The lines of a text that may be anything. A line longer than `most` bytes is passed over without
 * being kept, so that a file without line ends needs no memory.
 */
class BoundedLines {
  public:
    BoundedLines(std::istream& in, std::size_t most, char end = '\n')
        : in_(in), most_(most), end_(end) {}

    /** False at the end. A line that is too long is given as "", with too_long() true. */
    bool next(std::string& line);

    bool too_long() const { return too_long_; }

    /** Of the line that next() gave, in bytes from the start of the text. */
    std::int64_t offset() const { return offset_; }

  private:
    std::istream& in_;
    const std::size_t most_;
    const char end_;
    bool too_long_ = false;
    std::int64_t offset_ = 0;
    std::int64_t next_offset_ = 0;
};

/** The JSON of a recording: its curves take some 100 bytes for each second. */
constexpr std::size_t kMostJsonLineBytes = std::size_t{128} << 20;

}  // namespace quorvane
