#include "leveling/worker/job.h"

namespace quorvane {

JobOptions job_options(const FileWork& work) {
    JobOptions options;
    options.tuning = work.tuning;
    options.measure = work.measure;
    options.replace = work.force;
    options.redo_changed = work.redo_changed;
    options.keep_mtime = work.keep_mtime;
    options.plain = work.plain;
    options.strict = work.strict;
    options.salvage = work.salvage;
    options.audio_stream = work.audio_stream;
    options.audio_codec = work.audio_codec;
    options.channels = work.channels;
    options.align = work.align;
    options.destination = work.destinations.empty() ? "" : work.destinations.front();
    return options;
}

nlohmann::ordered_json to_json(const WorkResult& result) {
    return {{"facts", to_json(result.facts)},
            {"input_hash", result.input_hash},
            {"output_hash", result.output_hash},
            {"output_bytes", result.output_bytes}};
}

WorkResult work_result_from_json(const nlohmann::ordered_json& json) {
    return {facts_from_json(json.at("facts")), json.at("input_hash"), json.at("output_hash"),
            json.at("output_bytes")};
}

}  // namespace quorvane
