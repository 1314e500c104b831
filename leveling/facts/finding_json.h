#pragma once

#include <nlohmann/json.hpp>
#include <vector>

#include "leveling/facts/finding.h"

namespace quorvane {

/** The words of severities, codes and states are stable: programs read them. */
const char* to_text(Severity severity);
const char* to_text(SpeechState state);

nlohmann::ordered_json to_json(const std::vector<Finding>& findings);
nlohmann::ordered_json to_json(const SpeechLevels& speech);

/**
 * The reverse, for facts that a worker sent or a file holds. Both throw nlohmann::json::exception
 * on a malformed text and FactsError on codes, numbers and lengths that no run has written.
 */
std::vector<Finding> findings_from_json(const nlohmann::ordered_json& json);
SpeechLevels speech_from_json(const nlohmann::ordered_json& json);

}  // namespace quorvane
