#include "leveling/worker/job.h"

namespace quorvane {

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
