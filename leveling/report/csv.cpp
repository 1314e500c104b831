#include "leveling/report/csv.h"

#include <fmt/format.h>

#include <boost/algorithm/string/join.hpp>
#include <boost/algorithm/string/replace.hpp>
#include <cmath>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>

#include "leveling/publish/verdict.h"

namespace quorvane {
namespace {

using Asked = std::vector<std::string>;

/** A heading, and the text of the cell for a file and the places of --for. */
struct Column {
    const char* name;
    std::function<std::string(const FileFacts&, const Asked&)> cell;
};

/** Thousandths, as in the JSON. */
std::string number(double value) {
    // Minus zero is written as 0, silence as an empty cell.
    const double rounded = std::round(value * 1000) / 1000;
    return std::isfinite(value) ? fmt::format("{}", rounded == 0 ? 0.0 : rounded) : "";
}

/** A measured level; empty where it was not measured. */
Column level(const char* name, std::optional<Loudness> FileFacts::*when, double Loudness::*field) {
    return {name, [=](const FileFacts& facts, const Asked&) {
                return facts.*when ? number((*(facts.*when)).*field) : std::string();
            }};
}

/** The mean, least or greatest leveling gain. */
Column gain(const char* name, double Leveling::*field) {
    return {name, [=](const FileFacts& facts, const Asked&) {
                return facts.leveling ? number((*facts.leveling).*field) : std::string();
            }};
}

/** A number about the speech, where enough was found. */
Column speech(const char* name, const std::function<double(const SpeechLevels&)>& value) {
    return {name, [=](const FileFacts& facts, const Asked&) {
                const bool there = facts.speech && facts.speech->state == SpeechState::Measured;
                return there ? number(value(*facts.speech)) : std::string();
            }};
}

/** The codes of the findings that are so grave, with a space between. */
Column codes(const char* name, Severity severity) {
    return {name, [=](const FileFacts& facts, const Asked&) {
                Asked found;
                for (const Finding& finding : facts.findings) {
                    if (finding.severity == severity) {
                        found.push_back(finding.code);
                    }
                }
                return csv_text(boost::algorithm::join(found, " "));
            }};
}

/** Something of the file's sound, empty for a file that was never read. */
Column sound(const char* name, const std::function<std::string(const FileFacts&)>& value) {
    return {name, [=](const FileFacts& facts, const Asked&) {
                return facts.sample_rate_hz ? value(facts) : std::string();
            }};
}

std::vector<Column> text_columns() {
    return {
        {"input", [](const FileFacts& facts, const Asked&) { return csv_text(facts.input); }},
        {"output", [](const FileFacts& facts, const Asked&) { return csv_text(facts.output); }},
        {"status",
         [](const FileFacts& facts, const Asked&) { return std::string(to_text(facts.outcome)); }},
        {"for", [](const FileFacts&,
                   const Asked& asked) { return csv_text(boost::algorithm::join(asked, " ")); }},
        {"ready",
         [](const FileFacts& facts, const Asked& asked) {
             return std::string(asked.empty() || facts.is_track() ? ""
                                : is_ready(facts, asked)          ? "yes"
                                                                  : "no");
         }},
        {"verdict", [](const FileFacts& facts,
                       const Asked& asked) { return csv_text(verdict(facts, asked, Face::Page)); }},
        codes("problems", Severity::Problem),
        codes("warnings", Severity::Warning),
        codes("notes", Severity::Note),
        {"cause", [](const FileFacts& facts, const Asked&) { return csv_text(facts.cause); }},
        {"remarks",
         [](const FileFacts& facts, const Asked&) {
             return csv_text(boost::algorithm::join(facts.notes, "; "));
         }},
    };
}

std::vector<Column> number_columns() {
    const auto before = &FileFacts::before;
    const auto after = &FileFacts::after;
    return {
        sound("format", [](const FileFacts& facts) { return csv_text(facts.format); }),
        sound("duration_s", [](const FileFacts& facts) { return number(facts.duration_s()); }),
        sound("sample_rate_hz",
              [](const FileFacts& facts) { return std::to_string(facts.sample_rate_hz); }),
        sound("channels", [](const FileFacts& facts) { return std::to_string(facts.channels); }),
        speech("speech_s", [](const SpeechLevels& levels) { return levels.speech_s; }),
        speech("speech_passages",
               [](const SpeechLevels& levels) { return static_cast<double>(levels.count); }),
        speech("speech_span_before_db",
               [](const SpeechLevels& levels) { return levels.span_before_db; }),
        speech("speech_span_after_db",
               [](const SpeechLevels& levels) { return levels.span_after_db; }),
        level("loudness_before_lufs", before, &Loudness::integrated_lufs),
        level("loudness_after_lufs", after, &Loudness::integrated_lufs),
        level("range_before_lu", before, &Loudness::range_lu),
        level("range_after_lu", after, &Loudness::range_lu),
        level("true_peak_before_dbtp", before, &Loudness::true_peak_dbtp),
        level("true_peak_after_dbtp", after, &Loudness::true_peak_dbtp),
        level("sample_peak_before_dbfs", before, &Loudness::sample_peak_dbfs),
        level("sample_peak_after_dbfs", after, &Loudness::sample_peak_dbfs),
        level("rms_before_dbfs", before, &Loudness::rms_dbfs),
        level("rms_after_dbfs", after, &Loudness::rms_dbfs),
        level("pauses_before_dbfs", before, &Loudness::pauses_dbfs),
        level("pauses_after_dbfs", after, &Loudness::pauses_dbfs),
        gain("gain_mean_db", &Leveling::mean_gain_db),
        gain("gain_least_db", &Leveling::least_gain_db),
        gain("gain_greatest_db", &Leveling::greatest_gain_db),
        {"elapsed_s", [](const FileFacts& facts, const Asked&) { return number(facts.elapsed_s); }},
    };
}

/** In their order, which stays. */
const std::vector<Column>& columns() {
    static const std::vector<Column> all = [] {
        std::vector<Column> result = text_columns();
        for (Column& column : number_columns()) {
            result.push_back(std::move(column));
        }
        return result;
    }();
    return all;
}

}  // namespace

std::string csv_text(const std::string& text) {
    // The JSON library knows UTF-8: there and back again leaves valid text.
    using Json = nlohmann::json;
    std::string cell = Json::parse(Json(text).dump(-1, ' ', false, Json::error_handler_t::replace))
                           .get<std::string>();
    if (!cell.empty() && std::string("=+-@\t\r").find(cell[0]) != std::string::npos) {
        cell.insert(0, 1, '\'');
    }
    if (cell.find_first_of(",\"\r\n") != std::string::npos) {
        cell = "\"" + boost::algorithm::replace_all_copy(cell, "\"", "\"\"") + "\"";
    }
    return cell;
}

std::string csv_header() {
    std::vector<std::string> names;
    for (const Column& column : columns()) {
        names.emplace_back(column.name);
    }
    return boost::algorithm::join(names, ",") + "\r\n";
}

std::string csv_row(const FileFacts& facts, const std::vector<std::string>& asked) {
    std::vector<std::string> cells;
    for (const Column& column : columns()) {
        cells.push_back(column.cell(facts, asked));
    }
    return boost::algorithm::join(cells, ",") + "\r\n";
}

}  // namespace quorvane
