#pragma once

#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

/** As Settings::audio_stream: every one. */
constexpr int kEveryAudioStream = -1;

enum class When { Auto, Always, Never };

/** Wrong usage: exit status 2. what() is the sentence for the user. */
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** What a command line asks for. */
struct Settings {
    std::vector<std::string> paths;
    std::string suffix = "-leveled";
    std::string output;      // empty: named by the suffix
    std::string output_dir;  // empty: beside the input
    unsigned jobs = 1;
    bool force = false;
    bool keep_mtime = false;
    bool strict = false;
    int audio_stream = 0;     // of a media file, counted from 1; 0: the default one
    std::string audio_codec;  // for a media file's new sound; empty: the source's
    bool dry_run = false;
    bool analyze = false;
    bool measure = true;
    std::vector<std::string> destinations;  // words of --for; one of them unless analyzing
    std::string report;
    bool listen = true;  // excerpts in the report
    std::string json;
    bool quiet = false;
    bool verbose = false;
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

}  // namespace cli
