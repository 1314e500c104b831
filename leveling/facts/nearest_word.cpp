#include "leveling/facts/nearest_word.h"

#include <fmt/format.h>

#include <algorithm>
#include <boost/algorithm/string/case_conv.hpp>

namespace quorvane {
namespace {

/** Optimal string alignment: Damerau, "A technique for computer detection ...", CACM 7 (1964). */
std::size_t typing_errors(const std::string& one, const std::string& other) {
    const std::size_t width = other.size() + 1;
    std::vector<std::size_t> errors((one.size() + 1) * width);
    const auto at = [&](std::size_t i, std::size_t j) -> std::size_t& {
        return errors[i * width + j];
    };
    for (std::size_t i = 0; i <= one.size(); ++i) {
        for (std::size_t j = 0; j <= other.size(); ++j) {
            if (i == 0 || j == 0) {
                at(i, j) = i + j;
                continue;
            }
            const std::size_t replaced = at(i - 1, j - 1) + (one[i - 1] == other[j - 1] ? 0 : 1);
            at(i, j) = std::min({replaced, at(i - 1, j) + 1, at(i, j - 1) + 1});
            if (i > 1 && j > 1 && one[i - 1] == other[j - 2] && one[i - 2] == other[j - 1]) {
                at(i, j) = std::min(at(i, j), at(i - 2, j - 2) + 1);
            }
        }
    }
    return errors.back();
}

}  // namespace

std::string nearest_word(const std::string& typed, const std::vector<std::string>& words) {
    constexpr std::size_t kMostTyped = 60;  // longer is not a typing error
    if (typed.empty() || typed.size() > kMostTyped) {
        return "";
    }
    std::string nearest;
    std::size_t fewest = kMostTyped;
    for (const std::string& word : words) {
        // The start of a word counts as meant: "audio" for "audiobook".
        const std::string lower = boost::to_lower_copy(typed);
        const bool start = lower.size() > 2 && word.rfind(lower, 0) == 0;
        const std::size_t errors = start ? 1 : typing_errors(lower, word);
        if (errors < fewest && errors <= std::max<std::size_t>(word.size() / 3, 1)) {
            fewest = errors;
            nearest = word;
        }
    }
    return nearest;
}

std::string did_you_mean(const std::string& typed, const std::vector<std::string>& words) {
    const std::string nearest = nearest_word(typed, words);
    return nearest.empty() ? "" : fmt::format(" (did you mean {}?)", nearest);
}

}  // namespace quorvane
