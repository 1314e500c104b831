#include "leveling/advice/explain.h"

#include <fmt/format.h>

#include <algorithm>
#include <stdexcept>

#include "leveling/advice/advice_table.h"

namespace quorvane {
namespace {

/** Lines of at most 78 columns, each after so many spaces. The text is ASCII but for single signs.
 */
std::string wrapped(const std::string& text, std::size_t indent) {
    constexpr std::size_t kColumns = 78;
    std::string result;
    std::string line(indent, ' ');
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find(' ', at), text.size());
        const std::string word = text.substr(at, end - at);
        if (line.size() > indent && line.size() + 1 + word.size() > kColumns) {
            result += line + "\n";
            line.assign(indent, ' ');
        }
        line += (line.size() > indent ? " " : "") + word;
        at = end + 1;
    }
    return result + line + "\n";
}

/** All codes with their titles, a line each. */
std::string listed() {
    std::string text = "Findings that a run can report; --explain CODE tells about one:\n\n";
    for (const Advice& advice : advice_table()) {
        text += fmt::format("  {:<14} {}\n", advice.code, advice.title);
    }
    return text;
}

}  // namespace

std::string explanation(const std::string& code) {
    if (code.empty()) {
        return listed();
    }
    const Advice* advice = find_advice(code);
    if (!advice) {
        throw std::invalid_argument(fmt::format("no finding has the code '{}'", code));
    }
    std::string text = fmt::format("{}: {}\n\n", advice->code, advice->title);
    const auto add = [&](const char* title, const char* words) {
        text += fmt::format("{}\n{}\n", title, wrapped(words, 2));
    };
    add("What it means", advice->meaning);
    add("Why it matters", advice->why);
    add("What to do now",
        *advice->command_line ? advice->command_line : "Nothing: leveling takes care of it.");
    add("Before the next recording", advice->next_time);
    text.pop_back();
    return text;
}

}  // namespace quorvane
