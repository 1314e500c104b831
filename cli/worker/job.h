#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "cli/archive/record.h"

namespace cli {

/** What the files of a run have in common. */
struct JobOptions {
    std::vector<std::string> tuning;  // words for the engine: "--segment-tolerance=3", ...
    bool measure = true;              // the loudness before and after
    bool replace = false;             // an output that exists, whatever it is
    bool redo_changed = false;        // replace an output of ours whose input or options changed
    bool keep_mtime = false;
    bool strict = false;      // a damaged input fails
    int audio_stream = 0;     // counted from 1; 0: the default one, below 0: all
    std::string audio_codec;  // empty: the source's
    std::string destination;  // what the output is for, a word of --for; empty: nothing
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(JobOptions,
                                   tuning,
                                   measure,
                                   replace,
                                   redo_changed,
                                   keep_mtime,
                                   strict,
                                   audio_stream,
                                   audio_codec,
                                   destination)

/** What a worker process is told to do with one file. Paths are absolute. */
struct Job {
    std::string input;
    std::string output;  // empty: measure only
    // A directory of its own, which exists. Empty: the file is only to be looked at, as a run does
    // before it begins; nothing is decoded then and nothing written.
    std::string scratch;
    bool spare_processor = false;  // one is free for reading ahead and measuring meanwhile
    JobOptions options;
    FileState found;         // the output as the plan found it; when that changed, others were here
    std::string new_folder;  // missing_folder() of the output when the run began
    bool wait = false;       // for another process that is at the same output, else leave it
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(
    Job, input, output, scratch, spare_processor, options, found, new_folder, wait)

/**
 * How a worker is started: the program with kWorkerWord alone. It reads its job from
 * kJobDescriptor: the size in bytes as decimal digits, a line end, and the job as CBOR. It writes
 * its events, one JSON object per line, to kEventDescriptor: {"progress": 0.25} and at the end
 * {"facts": {...}}. When the job's pipe closes, its parent is gone and the worker removes its files
 * and ends.
 */
constexpr const char* kWorkerWord = "--quorvane-worker";
constexpr int kJobDescriptor = 3;
constexpr int kEventDescriptor = 4;

}  // namespace cli
