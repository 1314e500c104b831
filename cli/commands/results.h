#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>

#include "cli/options/settings.h"
#include "cli/terminal/screen.h"
#include "leveling/facts/run_facts.h"
#include "leveling/report/result_files.h"

namespace quorvane {

/** Facts as lines of JSON on the standard output, if that is asked for. */
class JsonLines {
  public:
    explicit JsonLines(const Settings& settings)
        : settings_(settings), wanted_(settings.json_on_standard_output()) {}

    void write(const FileFacts& facts);

    /** The same with other members in front of the facts, or instead of them. */
    void write(const nlohmann::ordered_json& front, const FileFacts* facts);

    /** Of the first line that could not be written. A reader that left (| head) is none. */
    int error() const;

  private:
    const Settings& settings_;
    bool wanted_;
    int error_ = 0;
};

/** Failures that many files share, those of a folder, are reported in one line. */
class SharedFailures {
  public:
    /** Counts a failure that is known before it is reported. */
    void add(const FileFacts& facts);

    /** True when the failure is shared. Its line is printed for the first of the files. */
    bool report(const FileFacts& facts, Screen& screen);

  private:
    std::map<std::string, std::size_t> count_of_;  // by cause
    std::set<std::string> reported_;
};

/** How many files a run has. */
enum class Files { One, Several };

/**
 * Reports one finished file on the screen and in the lines of JSON. The verdict on the only file of
 * a run comes first, here; that on several comes when all are finished.
 */
void tell_finished(const Settings& settings,
                   const FileFacts& facts,
                   Files files,
                   Screen& screen,
                   JsonLines& lines);

/**
 * Reports a finished run: prints the loudness table and the summary (a single file was reported
 * already, unless a signal stopped the run), and gives the report and JSON file their names.
 */
void tell_results(
    const Settings& settings, ResultFiles& results, double elapsed_s, int signal, Screen& screen);

/**
 * Writes the list of failed inputs, if requested, and returns the exit status of a finished run:
 * kSomeFailed when a file failed or the results could not be written, which is reported here;
 * kNotReady when a file does not meet its delivery target.
 */
int status_of(const Settings& settings,
              const ResultFiles& results,
              const JsonLines& lines,
              Screen& screen);

/** Whose help is shown. */
enum class Command { Level, Merge };

/** Reads the command line, answers --help and --version, and runs; errors become exit statuses. */
int run_command(int argc,
                const char* const* argv,
                const std::function<int(const Settings&)>& run,
                Command command = Command::Level);

}  // namespace quorvane
