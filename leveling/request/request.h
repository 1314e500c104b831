#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

/*
 * What a run is asked to do, as plain data: a command line, a window or another program fills a
 * Request in, and nothing below reads words. Its defaults are those of the command line. The parts
 * are structs of their own so that a function can take only what it needs.
 */

namespace quorvane {

/** As Request::audio_stream: every one. */
constexpr int kEveryAudioStream = -1;

/** A worker process each, with pipes and memory of its own. */
constexpr unsigned kMostJobs = 256;

/** As many as there are cores: from 1 to kMostJobs. */
unsigned usual_jobs();

/**
 * The request as a whole cannot be carried out: exit status 2 on a command line. Nothing was
 * written. what() is the sentence for the user.
 */
class UsageError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** One part of a work that was cut into `count` parts, counted from 0. */
struct Shard {
    std::size_t index = 0;
    std::size_t count = 1;
};

/** How outputs are named and where they go. */
struct OutputNames {
    std::string suffix = "-leveled";
    std::string output;      // of the only input; empty: named by the suffix
    std::string output_dir;  // empty: beside the input
    bool keep_top = false;   // each path's name is a folder in output_dir
};

/** The files and folders to work on. */
struct InputPlaces {
    std::vector<std::string> paths;  // files and folders, as named
    std::string files_from;          // a list of more paths; "-" is the standard input
    bool null = false;               // its separator, and that of `failed`, is a null byte
    std::string plan;                // the JSON of a dry run, instead of paths
    Shard shard;
};

/** What is written about a run besides its outputs. An empty path: not written. */
struct ResultPlaces {
    std::string report;  // HTML page or folder
    bool listen = true;  // excerpts in the report
    std::string json;    // file, "-" for the standard output
    std::string csv;     // a table for spreadsheets
    Curves curves = Curves::Tell;
    std::string log;
    std::string failed;  // a list of the inputs that failed

    bool json_on_standard_output() const { return json == "-"; }
};

/** What is done to each file. */
struct FileWork {
    std::vector<std::string> tuning;        // words for the engine: "--segment-tolerance=3", ...
    std::vector<std::string> destinations;  // words of --for; one of them unless analyzing
    bool plain = false;                     // the engine's result as it is
    bool strict = false;                    // an input that is cut short or damaged fails
    bool salvage = false;                   // it is leveled however much of it is lost
    int audio_stream = 0;                   // of a media file, counted from 1; 0: the default one
    std::string audio_codec;                // for a media file's new sound; empty: the source's
    bool measure = true;                    // before and after leveling
    bool keep_mtime = false;                // the output gets the input's modification time
    bool force = false;                     // replace outputs that exist
    bool redo_changed = false;              // replace the outputs of inputs that changed
    std::string channels;                   // a word of --channels; empty: chosen for each file
    bool together = false;                  // all are the tracks of one conversation
    bool separate = false;                  // none is, whatever it looks like
    std::string mix;                        // the file for the mix of the tracks; empty: none
    bool align = false;                     // tracks begin and end with the mix
};

/** A whole run. */
struct Request : InputPlaces, OutputNames, FileWork, ResultPlaces {
    unsigned jobs = usual_jobs();  // files worked on at the same time
    bool verify = false;           // what is done already by content, not size and time
    bool dry_run = false;          // report, and touch nothing
    bool analyze = false;          // measure, and write no audio
    std::size_t max_failures = 0;  // 0: any number
    double settle_s = 2;           // what a search finds is left alone for so long after a change
};

}  // namespace quorvane
