#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "leveling/archive/record.h"
#include "leveling/facts/loss.h"
#include "leveling/request/request.h"

namespace quorvane {

/** What the files of a run have in common. */
struct JobOptions {
    std::vector<std::string> tuning;  // words for the engine: "--segment-tolerance=3", ...
    bool measure = true;              // the loudness before and after
    bool replace = false;             // an output that exists, whatever it is
    bool redo_changed = false;        // replace an output of ours whose input or options changed
    bool keep_mtime = false;
    bool plain = false;        // the engine's result as it is: see Way::Plain
    bool strict = false;       // a damaged input fails
    bool salvage = false;      // a damaged input is leveled however much of it is lost
    bool look_inside = false;  // a look also runs the decoders that a format's header needs
    int audio_stream = 0;      // counted from 1; 0: the default one, below 0: all
    std::string audio_codec;   // empty: the source's
    std::string destination;   // what the output is for, a word of --for; empty: nothing
    std::string channels;      // what they are to each other, a word of --channels; empty: chosen
    bool align = false;        // a conversation's tracks begin and end with its mix
    std::string group;         // which files are leveled together with it; empty: none
};

/** What a worker has to know of the request; the first of its destinations. */
JobOptions job_options(const FileWork& work);

/** How much of an input may be lost. A measurement alone puts nothing in its place. */
inline LossLimit loss_limit(const JobOptions& options, bool levels) {
    if (options.strict) {
        return LossLimit::None;
    }
    return options.salvage || !levels ? LossLimit::Any : LossLimit::Small;
}

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(JobOptions,
                                   tuning,
                                   measure,
                                   replace,
                                   redo_changed,
                                   keep_mtime,
                                   plain,
                                   strict,
                                   salvage,
                                   look_inside,
                                   audio_stream,
                                   audio_codec,
                                   destination,
                                   channels,
                                   align,
                                   group)

/** What a worker process is told to do with one file. Paths are absolute. */
struct Job {
    std::string input;
    std::string output;  // the final name, which the parent gives; empty: measure only
    std::string part;    // an empty file that exists, for the output's content
    // A directory of its own, which exists. Empty: the file is only to be looked at, as a run does
    // before it begins; nothing is decoded then and nothing written.
    std::string scratch;
    bool spare_processor = false;  // one is free for reading ahead and measuring meanwhile
    bool mix = false;  // the output is the mix of the group's tracks, of which input is the first
    JobOptions options;
    bool compare = false;  // a look: whether these inputs are tracks of one conversation
    // Of a look: the facts of input and output as JSON, whose excerpts are wanted; empty: none.
    std::string excerpts_for;
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(
    Job, input, output, part, scratch, spare_processor, mix, options, compare, excerpts_for)

/** What a worker made of its job: the facts, and what the record of the output needs. */
struct WorkResult {
    FileFacts facts;
    std::string input_hash;
    std::string output_hash;
    std::int64_t output_bytes = 0;  // in the part
};

nlohmann::ordered_json to_json(const WorkResult& result);

/** Throws nlohmann::json::exception on a malformed text. */
WorkResult work_result_from_json(const nlohmann::ordered_json& json);

/**
 * How a worker is started: the program with kWorkerWord alone. It reads its jobs from
 * kJobDescriptor: the size in bytes as decimal digits, a line end, and an array of jobs as CBOR;
 * one job to work on, the jobs of a group, which have one scratch directory, or one or more without
 * a scratch directory to look at. It writes its events, one JSON object per line, to
 * kEventDescriptor: {"progress": 0.25} and at the end each job's WorkResult; or, for each look,
 * {"look": PLACE, "facts": {...}}, or "text" for excerpts. It ends with status 1 where the outcome
 * of the work is Failed, else with 0. When the job's pipe closes, its parent is gone and the worker
 * removes its scratch directory and ends.
 */
constexpr const char* kWorkerWord = "--quorvane-worker";
constexpr int kJobDescriptor = 3;
constexpr int kEventDescriptor = 4;

}  // namespace quorvane
