#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * The last word of many runs on each input. The runs' JSON is read in the order given; only the
 * place of a line is kept, so that the curves of a whole archive need no memory.
 */
class ResultLines {
  public:
    /** Throws std::system_error when the file cannot be read, UsageError when it is another's. */
    void add(const std::string& path);

    /**
     * How many inputs there are. They stand in the order of the plan, if the first file was that
     * of a dry run, and else in the order of their paths.
     */
    std::size_t size() const { return entries_.size(); }

    /** The facts of an input. Throws std::system_error when its line cannot be read again. */
    FileFacts facts(std::size_t index) const;

    /** The paths of an input and of its output ("": none), known without its line. */
    const std::string& input(std::size_t index) const { return entries_[index].input; }

    const std::string& output(std::size_t index) const { return entries_[index].output; }

    void sort();

    /**
     * A sentence for each file with incomplete lines: what they reported is unknown.
     * A line that is cut off, as a killed run leaves one, is none of them where a later file has
     * the result of the same input.
     */
    std::vector<std::string> problems() const;

  private:
    struct Entry {
        std::string input;
        std::string output;
        bool mix;  // it has the input of its first track, too
        Outcome outcome;
        std::size_t file;
        std::int64_t offset;
        std::int64_t bytes;
    };

    struct Problem {
        std::string text;
        std::string cut_input;  // whose later result solves the problem; "": none does
    };

    void take(const std::string& line, std::size_t file, std::int64_t offset);

    std::vector<std::string> files_;
    std::vector<Entry> entries_;
    std::unordered_map<std::string, std::size_t> entry_of_;
    std::vector<Problem> problems_;
    bool planned_ = false;
};

}  // namespace quorvane
