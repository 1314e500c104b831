#pragma once

#include <cstdint>
#include <exception>
#include <iosfwd>
#include <string>

namespace segment {

/** Throws or ends the process: the search cannot continue. */
using AssertionHandler = void (*)(const char* condition);

/**
 * Sets what a broken assumption of the engine calls on this thread, and returns what it called
 * before. Null, the default: the process ends by abort.
 */
AssertionHandler set_assertion_handler(AssertionHandler handler);

/** A broken assumption of the engine ends the process, in every build, unless a handler throws. */
[[noreturn]] void assertion_failed(const char* condition);

inline void require(bool holds, const char* condition) {
    if (!holds) {
        assertion_failed(condition);
    }
}

/** Fewer values than expected. */
class read_sums_error : public std::exception {
  public:
    read_sums_error(int line, const std::string& source) : line_(line), source_(source) {}

    int line() const { return line_; }

    const std::string& source() const { return source_; }

  private:
    int line_;
    std::string source_;
};

/** The same, with the name of the input. */
class read_sums_error_with_file_info : public read_sums_error {
  public:
    read_sums_error_with_file_info(const read_sums_error& error, const std::string& name)
        : read_sums_error(error), name_(name) {}

    const std::string& name() const { return name_; }

  private:
    std::string name_;
};

/**
 * Reads n numbers separated by white space. The stream is checked after each: the last one, too,
 * must be followed by white space. Throws read_sums_error.
 */
void readNums(std::uint16_t n, std::istream& is, double* out);

/** Reads n numbers; pSum and pSumSq receive the running sums of them and of their squares. */
void readSums(std::uint16_t n, std::istream& is, double* pSum, double* pSumSq);

/**
 * Writes the entries other than 0, a line each. Returns 1, after naming the stream in the log, when
 * it fails.
 */
int WriteBreakpointFile(std::ostream& os,
                        const std::string& name,
                        const unsigned int* pBreakpoints,
                        std::uint16_t count);

}  // namespace segment
