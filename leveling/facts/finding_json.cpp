#include "leveling/facts/finding_json.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "leveling/facts/json_numbers.h"

namespace quorvane {
namespace {

using Json = nlohmann::ordered_json;

// More than any run writes, so that facts from elsewhere cannot fill the memory.
constexpr std::size_t kMostFindings = 100;
constexpr std::size_t kMostPlaces = 20;
constexpr std::size_t kMostPassages = 200;
constexpr std::size_t kLongestWord = 40;

// In the order of the enumerations, whose values are the indexes. Programs read these words.
constexpr const char* kSeverities[] = {"problem", "warning", "note"};
constexpr const char* kStates[] = {"measured", "too-short", "no-speech"};

/** Throws FactsError for another word. */
template <std::size_t kCount>
std::size_t index_of(const char* const (&words)[kCount], const std::string& word) {
    const auto* const found = std::find(std::begin(words), std::end(words), word);
    if (found == std::end(words)) {
        throw FactsError("\"" + word + "\" is not a known word");
    }
    return static_cast<std::size_t>(found - std::begin(words));
}

/** The list itself. Throws FactsError where it is longer than any that a run writes. */
const Json& list(const Json& json, std::size_t most) {
    if (!json.is_array() || json.size() > most) {
        throw FactsError("not a list of at most " + std::to_string(most) + " entries");
    }
    return json;
}

/** Throws FactsError for a text of more than kLongestWord bytes. */
std::string word_back(const Json& json) {
    auto word = json.get<std::string>();
    if (word.size() > kLongestWord) {
        throw FactsError("a code, unit or detail is too long");
    }
    return word;
}

/** Lower-case letters and hyphens alone. Throws FactsError for anything else. */
std::string code_back(const Json& json) {
    std::string code = word_back(json);
    const auto is_of_codes = [](char c) { return (c >= 'a' && c <= 'z') || c == '-'; };
    if (code.empty() || !std::all_of(code.begin(), code.end(), is_of_codes)) {
        throw FactsError("\"" + code + "\" is not a code of a finding");
    }
    return code;
}

}  // namespace

const char* to_text(Severity severity) {
    return kSeverities[static_cast<std::size_t>(severity)];
}

const char* to_text(SpeechState state) {
    return kStates[static_cast<std::size_t>(state)];
}

Json to_json(const std::vector<Finding>& findings) {
    Json json = Json::array();
    for (const Finding& finding : findings) {
        Json places = Json::array();
        for (const FindingPlace& place : finding.places) {
            places.push_back({{"from_s", number(place.from_s)}, {"to_s", number(place.to_s)}});
        }
        json.push_back({{"code", finding.code},
                        {"severity", to_text(finding.severity)},
                        {"value", number(finding.value)},
                        {"unit", finding.unit},
                        {"detail", finding.detail},
                        {"places", places}});
    }
    return json;
}

Json to_json(const SpeechLevels& speech) {
    Json passages = Json::array();
    for (const SpeechPassage& passage : speech.passages) {
        passages.push_back({{"from_s", number(passage.from_s)},
                            {"to_s", number(passage.to_s)},
                            {"before_db", number(passage.before_db)},
                            {"after_db", number(passage.after_db)}});
    }
    return {{"state", to_text(speech.state)},
            {"speech_s", number(speech.speech_s)},
            {"count", speech.count},
            {"span_before_db", number(speech.span_before_db)},
            {"span_after_db", number(speech.span_after_db)},
            {"passages", passages}};
}

std::vector<Finding> findings_from_json(const Json& json) {
    std::vector<Finding> findings;
    for (const Json& entry : list(json, kMostFindings)) {
        Finding finding;
        finding.code = code_back(entry.at("code"));
        finding.severity =
            static_cast<Severity>(index_of(kSeverities, entry.at("severity").get<std::string>()));
        finding.value = number_back(entry.at("value"));
        finding.unit = word_back(entry.at("unit"));
        finding.detail = word_back(entry.at("detail"));
        for (const Json& place : list(entry.at("places"), kMostPlaces)) {
            finding.places.push_back(
                {number_back(place.at("from_s")), number_back(place.at("to_s"))});
        }
        findings.push_back(std::move(finding));
    }
    return findings;
}

SpeechLevels speech_from_json(const Json& json) {
    SpeechLevels speech;
    speech.state = static_cast<SpeechState>(index_of(kStates, json.at("state").get<std::string>()));
    speech.speech_s = number_back(json.at("speech_s"));
    speech.count = json.at("count");
    speech.span_before_db = level_back(json.at("span_before_db"));
    speech.span_after_db = level_back(json.at("span_after_db"));
    for (const Json& passage : list(json.at("passages"), kMostPassages)) {
        speech.passages.push_back(
            {number_back(passage.at("from_s")), number_back(passage.at("to_s")),
             level_back(passage.at("before_db")), level_back(passage.at("after_db"))});
    }
    return speech;
}

}  // namespace quorvane
