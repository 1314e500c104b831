#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

/*
 * Settings are what was asked for, read once and checked for contradictions; nobody else looks at
 * the command line. The tuning options are not read here: they go to the engine as they were given,
 * which knows their types and says what is wrong with them.
 */

namespace quorvane {

/** As Settings::audio_stream: every one. */
constexpr int kEveryAudioStream = -1;

enum class When { Auto, Always, Never };

/** Wrong usage: exit status 2. what() is the sentence for the user. */
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** One part of a work that was cut into `count` parts, counted from 0. */
struct Shard {
    std::size_t index = 0;
    std::size_t count = 1;
};

/** What a command line asks for. */
struct Settings {
    std::vector<std::string> paths;  // files and folders, as named
    std::string files_from;          // a list of more paths; "-" is the standard input
    bool null = false;               // its separator, and that of `failed`, is a null byte
    std::string plan;                // the JSON of a dry run, instead of paths
    Shard shard;
    std::string suffix = "-leveled";
    std::string output;                     // empty: named by the suffix
    std::string output_dir;                 // empty: beside the input
    unsigned jobs = 1;                      // files worked on at the same time
    bool keep_top = false;                  // each PATH's name is a folder in output_dir
    bool force = false;                     // replace outputs that exist
    bool redo_changed = false;              // replace the outputs of inputs that changed
    bool verify = false;                    // what is done already by content, not size and time
    bool keep_mtime = false;                // the output gets the input's modification time
    bool plain = false;                     // the engine's result as it is
    bool strict = false;                    // an input that is cut short or damaged fails
    bool salvage = false;                   // it is leveled however much of it is lost
    int audio_stream = 0;                   // of a media file, counted from 1; 0: the default one
    std::string audio_codec;                // for a media file's new sound; empty: the source's
    bool dry_run = false;                   // tell, and touch nothing
    bool analyze = false;                   // measure, and write no audio
    bool measure = true;                    // before and after leveling
    std::vector<std::string> destinations;  // words of --for; one of them unless analyzing
    std::string report;                     // HTML page or folder; empty: none
    bool listen = true;                     // excerpts in the report
    std::string json;                       // file, "-" for the standard output; empty: none
    Curves curves = Curves::Tell;
    std::string log;               // empty: none
    std::string failed;            // a list of the inputs that failed; empty: none
    std::size_t max_failures = 0;  // 0: any number
    double settle_s = 2;           // what a search finds is left alone for so long after a change
    bool quiet = false;            // errors only
    bool verbose = false;          // the engine's messages as well
    When color = When::Auto;
    When progress = When::Auto;
    std::vector<std::string> tuning;  // words for the engine: "--segment-tolerance=3", ...
    bool help = false;
    bool version = false;

    bool json_on_standard_output() const { return json == "-"; }
};

/** Reads a command line (argv[0] is the program's name). Throws UsageError. */
Settings parse_command_line(int argc, const char* const* argv);

std::string help_text();

}  // namespace quorvane
