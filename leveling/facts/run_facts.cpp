#include "leveling/facts/run_facts.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>

#include "leveling/facts/conversation_json.h"
#include "leveling/facts/finding_json.h"
#include "leveling/facts/json_numbers.h"
#include "leveling/facts/no_room.h"

namespace quorvane {
namespace {

using Json = nlohmann::ordered_json;

/** The words of "status": programs read them, so that they stay. */
const std::map<Outcome, const char*>& outcome_names() {
    static const std::map<Outcome, const char*> names = {
        {Outcome::Leveled, "leveled"},        {Outcome::Copied, "copied"},
        {Outcome::Analyzed, "analyzed"},      {Outcome::UpToDate, "up-to-date"},
        {Outcome::Skipped, "skipped"},        {Outcome::Planned, "planned"},
        {Outcome::Failed, "failed"},          {Outcome::Damaged, "damaged"},
        {Outcome::Interrupted, "interrupted"}};
    return names;
}

/** The inverse. at() throws for an unknown status, which must not pass for a harmless one. */
Outcome outcome_back(const Json& status) {
    static const Json outcomes = [] {
        Json result;
        for (const auto& [outcome, name] : outcome_names()) {
            result[name] = static_cast<int>(outcome);
        }
        return result;
    }();
    return static_cast<Outcome>(outcomes.at(status.get<std::string>()).get<int>());
}

/** An empty text is null in JSON. */
std::string text_back(const Json& json) {
    return json.is_null() ? std::string() : json.get<std::string>();
}

/** Values at equal steps, the first at 0 s. */
Json curve(const Curve& from) {
    Json values = Json::array();
    for (double value : from.values) {
        values.push_back(number(value));
    }
    return {{"step_s", from.step_s}, {"values", values}};
}

/** Empty when the curve was left out. */
Curve curve_back(const Json& parent, const char* name) {
    if (!parent.contains(name)) {
        return {};
    }
    const Json& json = parent.at(name);
    Curve result{json.at("step_s"), {}};
    for (const Json& value : json.at("values")) {
        result.values.push_back(level_back(value));
    }
    return result;
}

/** Units stand in the names; a curve is most of a file's JSON and may be left out. */
Json loudness(const Loudness& from, Curves curves) {
    Json json = {{"integrated_lufs", number(from.integrated_lufs)},
                 {"range_lu", number(from.range_lu)},
                 {"true_peak_dbtp", number(from.true_peak_dbtp)},
                 {"sample_peak_dbfs", number(from.sample_peak_dbfs)},
                 {"rms_dbfs", number(from.rms_dbfs)},
                 {"pauses_dbfs", number(from.pauses_dbfs)},
                 {"head_s", number(from.head_s)},
                 {"tail_s", number(from.tail_s)}};
    if (curves == Curves::Tell && from.short_term_lufs.step_s > 0) {
        json["short_term_lufs"] = curve(from.short_term_lufs);
    }
    if (curves == Curves::Tell && from.peaks_dbfs.step_s > 0) {
        json["peaks_dbfs"] = curve(from.peaks_dbfs);
    }
    return json;
}

/** The inverse of loudness(). What the JSON does not hold stays 0 or empty. */
Loudness loudness_back(const Json& json) {
    return {level_back(json.at("integrated_lufs")),
            level_back(json.at("range_lu")),
            level_back(json.at("true_peak_dbtp")),
            level_back(json.at("sample_peak_dbfs")),
            level_back(json.at("rms_dbfs")),
            level_back(json.at("pauses_dbfs")),
            number_back(json.at("head_s")),
            number_back(json.at("tail_s")),
            curve_back(json, "short_term_lufs"),
            0,
            {},
            curve_back(json, "peaks_dbfs")};
}

/** Gains in dB, as the engine applied them before the last step. */
Json leveling(const Leveling& from, Curves curves) {
    Json passages = Json::array();
    for (const Passage& passage : from.passages) {
        passages.push_back({{"from_s", number(passage.from_s)},
                            {"to_s", number(passage.to_s)},
                            {"level_db", number(passage.level_db)},
                            {"gain_db", number(passage.gain_db)}});
    }
    Json json = {{"mean_gain_db", number(from.mean_gain_db)},
                 {"least_gain_db", number(from.least_gain_db)},
                 {"greatest_gain_db", number(from.greatest_gain_db)},
                 {"passages", passages}};
    if (curves == Curves::Tell && from.gain_db.step_s > 0) {
        json["gain_db"] = curve(from.gain_db);
    }
    return json;
}

Leveling leveling_back(const Json& json) {
    Leveling result;
    result.mean_gain_db = level_back(json.at("mean_gain_db"));
    result.least_gain_db = level_back(json.at("least_gain_db"));
    result.greatest_gain_db = level_back(json.at("greatest_gain_db"));
    result.gain_db = curve_back(json, "gain_db");
    for (const Json& passage : json.at("passages")) {
        result.passages.push_back(
            {number_back(passage.at("from_s")), number_back(passage.at("to_s")),
             level_back(passage.at("level_db")), level_back(passage.at("gain_db"))});
    }
    return result;
}

/**
 * A path in JSON's text is UTF-8. One that is not gets a second field, NAME_bytes, that gives it
 * back: "%" and two hexadecimal digits for each byte outside of printable ASCII, and for "%".
 */
void put_path(Json& json, const std::string& name, const std::string& path) {
    json[name] = path.empty() ? Json(nullptr) : Json(path);
    try {
        // The library checks for UTF-8 only when it writes.
        (void)Json(path).dump();
    } catch (const Json::type_error&) {
        std::string bytes;
        for (const char c : path) {
            const auto byte = static_cast<unsigned char>(c);
            const bool plain = byte > 0x20 && byte < 0x7F && c != '%';
            bytes += plain ? std::string(1, c) : fmt::format("%{:02X}", byte);
        }
        json[name + "_bytes"] = bytes;
    }
}

/** The inverse of put_path. */
std::string path_back(const Json& json, const std::string& name) {
    const auto bytes = json.find(name + "_bytes");
    if (bytes == json.end()) {
        return text_back(json.at(name));
    }
    const auto text = bytes->get<std::string>();
    std::string path;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            path += text[i];
            continue;
        }
        unsigned byte = 0;
        const char* const end = text.data() + std::min(i + 3, text.size());
        const auto read = std::from_chars(text.data() + i + 1, end, byte, 16);
        if (read.ec != std::errc() || read.ptr != text.data() + i + 3) {
            throw FactsError(name + "_bytes holds a % that no two hexadecimal digits follow");
        }
        path += static_cast<char>(byte);
        i += 2;
    }
    return path;
}

/** Levels in dB, times in seconds; pauses and phrases are counted. */
Json preparation(const Preparation& from) {
    return {{"raised_db", number(from.raised_db)},
            {"steep_high_pass", from.steep_high_pass},
            {"pauses", from.pauses},
            {"pauses_s", number(from.pauses_s)},
            {"phrases", from.phrases},
            {"even", from.even},
            {"background_under_speech_db", number(from.background_under_speech_db)},
            {"dithered", from.dithered}};
}

Preparation preparation_back(const Json& json) {
    return {number_back(json.at("raised_db")),
            json.at("steep_high_pass"),
            json.at("pauses"),
            number_back(json.at("pauses_s")),
            json.at("phrases"),
            json.at("even"),
            number_back(json.at("background_under_speech_db")),
            json.at("dithered")};
}

/** limited_share is a part of the time, 0 to 1. */
Json publishing(const Publishing& from) {
    return {{"destination", from.destination},
            {"gain_db", number(from.gain_db)},
            {"ceiling_dbtp", number(from.ceiling_dbtp)},
            {"most_limiting_db", number(from.most_limiting_db)},
            {"limited_share", number(from.limited_share)},
            {"held_back", from.held_back}};
}

Publishing publishing_back(const Json& json) {
    return {json.at("destination"),
            level_back(json.at("gain_db")),
            level_back(json.at("ceiling_dbtp")),
            level_back(json.at("most_limiting_db")),
            number_back(json.at("limited_share")),
            json.at("held_back")};
}

Json media(const MediaFacts& from) {
    return {{"container", from.container},
            {"codec", from.codec},
            {"bit_rate_bps", from.bit_rate_bps},
            {"audio_streams", from.audio_streams}};
}

MediaFacts media_back(const Json& json) {
    return {json.at("container"), json.at("codec"), json.at("bit_rate_bps"),
            json.at("audio_streams").get<std::vector<int>>()};
}

}  // namespace

const char* to_text(Outcome outcome) {
    return outcome_names().at(outcome);
}

bool is_failure(Outcome outcome) {
    return outcome == Outcome::Failed || outcome == Outcome::Damaged;
}

void set_failed(FileFacts& facts, const std::exception& error) {
    facts.outcome = Outcome::Failed;
    facts.cause = cause_of(error);
    facts.no_room = is_want_of_room(error);
}

Json to_json(const FileFacts& facts, Curves curves) {
    Json json;
    put_path(json, "input", facts.input);
    put_path(json, "output", facts.output);
    json["status"] = to_text(facts.outcome);
    json["cause"] = facts.cause.empty() ? Json(nullptr) : Json(facts.cause);
    // Written only where it is true: earlier versions have no such fields.
    if (facts.no_room) {
        json["no_room"] = true;
    }
    if (facts.earlier_arithmetic) {
        json["earlier_arithmetic"] = true;
    }
    json["notes"] = facts.notes;
    json["elapsed_s"] = number(facts.elapsed_s);
    if (facts.bytes) {
        json["bytes"] = facts.bytes;
    }
    // Without a rate the file was never read, and its sound is unknown.
    if (facts.sample_rate_hz) {
        json["format"] = facts.format;
        json["sample_rate_hz"] = facts.sample_rate_hz;
        json["channels"] = facts.channels;
        json["frames"] = facts.frames;
        json["duration_s"] = number(facts.duration_s());
    }
    if (facts.media) {
        json["media"] = media(*facts.media);
    }
    if (facts.before) {
        json["before"] = loudness(*facts.before, curves);
    }
    if (facts.after) {
        json["after"] = loudness(*facts.after, curves);
    }
    if (facts.leveling) {
        json["leveling"] = leveling(*facts.leveling, curves);
    }
    if (facts.preparation) {
        json["preparation"] = preparation(*facts.preparation);
    }
    if (facts.publishing) {
        json["publishing"] = publishing(*facts.publishing);
    }
    if (facts.conversation) {
        json["conversation"] = to_json(*facts.conversation);
    }
    if (facts.dialogue_lufs) {
        json["dialogue_lufs"] = number(*facts.dialogue_lufs);
    }
    if (facts.speech) {
        json["speech"] = to_json(*facts.speech);
    }
    if (!facts.findings.empty()) {
        json["findings"] = to_json(facts.findings);
    }
    if (!facts.unfenced.empty()) {
        json["unfenced"] = facts.unfenced;
    }
    return json;
}

FileFacts facts_from_json(const Json& json) {
    FileFacts facts;
    facts.input = path_back(json, "input");
    facts.output = path_back(json, "output");
    facts.outcome = outcome_back(json.at("status"));
    facts.cause = text_back(json.at("cause"));
    // value() supplies what documents of earlier versions lack.
    facts.no_room = json.value("no_room", false);
    facts.earlier_arithmetic = json.value("earlier_arithmetic", false);
    facts.notes = json.at("notes").get<std::vector<std::string>>();
    facts.elapsed_s = number_back(json.at("elapsed_s"));
    facts.bytes = json.value("bytes", std::int64_t{0});
    // The length in seconds is not read back: it follows from frames and rate.
    if (json.contains("sample_rate_hz")) {
        facts.format = json.at("format");
        facts.sample_rate_hz = json.at("sample_rate_hz");
        facts.channels = json.at("channels");
        facts.frames = json.at("frames");
    }
    if (json.contains("media")) {
        facts.media = media_back(json.at("media"));
    }
    if (json.contains("before")) {
        facts.before = loudness_back(json.at("before"));
    }
    if (json.contains("after")) {
        facts.after = loudness_back(json.at("after"));
    }
    if (json.contains("leveling")) {
        facts.leveling = leveling_back(json.at("leveling"));
    }
    if (json.contains("preparation")) {
        facts.preparation = preparation_back(json.at("preparation"));
    }
    if (json.contains("publishing")) {
        facts.publishing = publishing_back(json.at("publishing"));
    }
    if (json.contains("conversation")) {
        facts.conversation = conversation_from_json(json.at("conversation"));
    }
    if (json.contains("dialogue_lufs")) {
        facts.dialogue_lufs = number_back(json.at("dialogue_lufs"));
    }
    if (json.contains("speech")) {
        facts.speech = speech_from_json(json.at("speech"));
    }
    if (json.contains("findings")) {
        facts.findings = findings_from_json(json.at("findings"));
    }
    facts.unfenced = json.value("unfenced", std::vector<std::string>{});
    return facts;
}

void strip_curves(FileFacts& facts) {
    for (auto* loudness : {&facts.before, &facts.after}) {
        if (*loudness) {
            (*loudness)->short_term_lufs = {};
            (*loudness)->peaks_dbfs = {};
        }
    }
    if (facts.leveling) {
        facts.leveling->gain_db = {};
    }
}

/** Also drops the lists that grow with the recording. */
void strip_details(FileFacts& facts) {
    strip_curves(facts);
    if (facts.leveling) {
        facts.leveling->passages = {};
    }
    if (facts.speech) {
        facts.speech->passages = {};
    }
    for (Finding& finding : facts.findings) {
        finding.places = {};
    }
}

std::string dump(const Json& json) {
    // One line; bytes that are no UTF-8 become U+FFFD, and put_path has kept those of paths.
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace quorvane
