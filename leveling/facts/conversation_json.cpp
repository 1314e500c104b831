#include "leveling/facts/conversation_json.h"

#include "leveling/facts/json_numbers.h"

namespace quorvane {

nlohmann::ordered_json to_json(const ConversationPart& part) {
    nlohmann::ordered_json json = {
        {"tracks", part.tracks}, {"mix", part.mix}, {"speaks_s", number(part.speaks_s)}};
    if (!part.first_track.empty()) {
        json["first_track"] = part.first_track;
    }
    if (!part.turns.empty()) {
        for (const FindingPlace& turn : part.turns) {
            json["turns"].push_back({number(turn.from_s), number(turn.to_s)});
        }
    }
    if (part.clock) {
        json["clock"] = {{"offset_s", part.clock->offset_s},
                         {"drift_ppm", part.clock->drift_ppm},
                         {"certainty", part.clock->certainty}};
    }
    return json;
}

ConversationPart conversation_from_json(const nlohmann::ordered_json& json) {
    ConversationPart part;
    part.tracks = json.at("tracks");
    part.mix = json.at("mix");
    part.speaks_s = number_back(json.at("speaks_s"));
    part.first_track = json.value("first_track", "");
    if (json.contains("turns")) {
        for (const auto& turn : json.at("turns")) {
            part.turns.push_back({number_back(turn.at(0)), number_back(turn.at(1))});
        }
    }
    if (json.contains("clock")) {
        const auto& clock = json.at("clock");
        part.clock =
            TrackClock{number_back(clock.at("offset_s")), number_back(clock.at("drift_ppm")),
                       number_back(clock.at("certainty"))};
    }
    return part;
}

}  // namespace quorvane
