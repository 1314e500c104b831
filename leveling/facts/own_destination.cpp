#include "leveling/facts/own_destination.h"

#include <fmt/format.h>

#include <boost/algorithm/string/replace.hpp>
#include <boost/algorithm/string/split.hpp>
#include <charconv>
#include <vector>

namespace quorvane {
namespace {

constexpr double kTolerance = 0.5;  // LU, both ways

/** A number of the word, and what it may be. */
struct Field {
    const char* name = "";
    double least = 0;
    double most = 0;
    std::optional<double> value = {};
};

/** Reads "lufs=-18" into the field. Returns the problem, "" for none. */
std::string read_field(const std::string& text, Field& field) {
    const std::string number = text.substr(text.find('=') + 1);
    double value = 0;
    const char* const end = number.data() + number.size();
    const auto read = std::from_chars(number.data(), end, value, std::chars_format::fixed);
    if (read.ec != std::errc() || read.ptr != end || !(value >= field.least) ||
        !(value <= field.most)) {
        return fmt::format("{} takes a number from {:g} to {:g}, not '{}'", field.name, field.least,
                           field.most, number);
    }
    if (field.value) {
        return fmt::format("{} is given twice", field.name);
    }
    field.value = value == 0 ? 0.0 : value;  // no "-0"
    return "";
}

std::string typeset(double value) {
    return boost::algorithm::replace_all_copy(fmt::format("{:g}", value), "-", "−");
}

}  // namespace

OwnDestination own_destination(const std::string& word) {
    if (word.rfind("lufs", 0) != 0 && word.rfind("tp", 0) != 0) {
        return {};
    }
    Field loudness = {"lufs", -40, -5};
    Field peak = {"tp", -20, 0};
    std::vector<std::string> parts;
    boost::algorithm::split(parts, word, [](char c) { return c == ':'; });
    for (const std::string& part : parts) {
        const std::string name = part.substr(0, part.find('='));
        const bool known = part.find('=') != std::string::npos && (name == "lufs" || name == "tp");
        const std::string problem =
            known ? read_field(part, name == "lufs" ? loudness : peak)
                  : fmt::format("'{}' is neither lufs=NUMBER nor tp=NUMBER", part);
        if (!problem.empty()) {
            return {std::nullopt, problem};
        }
    }
    if (!loudness.value || !peak.value) {
        return {std::nullopt, fmt::format("{} is missing, as in lufs=-18:tp=-1.5",
                                          loudness.value ? "tp" : "lufs")};
    }
    Destination own;
    own.word = fmt::format("lufs={:g}:tp={:g}", *loudness.value, *peak.value);
    own.name = fmt::format("{} LUFS, {} dBTP", typeset(*loudness.value), typeset(*peak.value));
    own.kind = LevelKind::Loudness;
    own.mono_target = own.other_target = *loudness.value;
    own.lower_by = own.higher_by = kTolerance;
    own.peak_limit_db = *peak.value;
    return {own, ""};
}

}  // namespace quorvane
