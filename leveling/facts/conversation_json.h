#pragma once

#include <nlohmann/json.hpp>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/** A file's part in a conversation as JSON, and back. Turns and clock may be missing. */
nlohmann::ordered_json to_json(const ConversationPart& part);

/** Throws nlohmann::json::exception on a malformed text. */
ConversationPart conversation_from_json(const nlohmann::ordered_json& json);

}  // namespace quorvane
