#include "leveling/archive/result_lines.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "leveling/archive/bounded_lines.h"
#include "leveling/request/request.h"
#include "leveling/storage/path_order.h"

namespace quorvane {
namespace {

/**
 * Whether a later line takes the place of an earlier one. The last word counts, except that a plan
 * and a run that was stopped know less than any other, and that a run which found the work done
 * knows less than the one that did it.
 */
bool says_more(Outcome later, Outcome earlier) {
    switch (later) {
        case Outcome::Planned:
            return false;
        case Outcome::Interrupted:
            return earlier == Outcome::Planned;
        case Outcome::UpToDate:
            return earlier != Outcome::Leveled && earlier != Outcome::Copied;
        default:
            return true;
    }
}

/**
 * The input that a broken line names, if the line is the start of a result and nothing else: "" if
 * it is cut off before that, or if something follows that may be a part of another result.
 */
std::string input_of_cut_line(const std::string& line, const nlohmann::json::exception& error) {
    const auto* const unread = dynamic_cast<const nlohmann::json::parse_error*>(&error);
    if (!unread || unread->byte <= line.size()) {
        return "";
    }
    const std::size_t end = line.find(R"(,"output":)");  // inside a text, quotes have a backslash
    if (end == std::string::npos) {
        return "";
    }
    const std::string rest =
        R"(,"output":null,"status":"planned","cause":null,"notes":[],"elapsed_s":0})";
    try {
        return facts_from_json(nlohmann::ordered_json::parse(line.substr(0, end) + rest)).input;
    } catch (const nlohmann::json::exception&) {
        return "";
    }
}

}  // namespace

void ResultLines::add(const std::string& path) {
    if (std::filesystem::is_fifo(path)) {
        throw UsageError(
            fmt::format("{} is a pipe, and results are read twice; save them to a file", path));
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    files_.push_back(path);
    // A task that was killed may have left nothing, or the start of a line.
    if (const int first = in.peek(); first != '{' && first != std::ifstream::traits_type::eof()) {
        throw UsageError(fmt::format("{} is not the JSON of a run", path));
    }
    std::size_t number = 0;
    std::size_t broken = 0;
    std::size_t first_broken = 0;
    std::string cut_input;
    BoundedLines lines(in, kMostJsonLineBytes);
    for (std::string line; lines.next(line);) {
        ++number;
        try {
            if (lines.too_long()) {
                throw FactsError("too long for the facts of a file");
            }
            take(line, files_.size() - 1, lines.offset());
        } catch (const nlohmann::json::exception& error) {
            first_broken = broken++ == 0 ? number : first_broken;
            cut_input = broken == 1 ? input_of_cut_line(line, error) : "";
        }
    }
    if (in.bad()) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    if (broken != 0) {
        problems_.push_back(
            {fmt::format("{}: line {}{} is not a whole result, so what it reported is unknown; "
                         "repeat that run and leave this file out of the merge",
                         path, first_broken,
                         broken == 1 ? "" : fmt::format(" (the first of {})", broken)),
             cut_input});
    }
}

// Only places in the files are kept: the results of a large archive take gigabytes.
void ResultLines::take(const std::string& line, std::size_t file, std::int64_t offset) {
    if (line.empty()) {
        return;
    }
    const FileFacts facts = facts_from_json(nlohmann::ordered_json::parse(line));
    planned_ = planned_ || (file == 0 && facts.outcome == Outcome::Planned);
    if (facts.outcome != Outcome::Planned && facts.outcome != Outcome::Interrupted) {
        const auto solved = [&](const Problem& problem) {
            return !problem.cut_input.empty() && problem.cut_input == facts.input;
        };
        problems_.erase(std::remove_if(problems_.begin(), problems_.end(), solved),
                        problems_.end());
    }
    const bool mix = facts.conversation && facts.conversation->mix;
    const Entry entry{facts.input,
                      facts.output,
                      mix,
                      facts.outcome,
                      file,
                      offset,
                      static_cast<std::int64_t>(line.size())};
    // No path ends in a null byte, so a mix is found apart from its first track.
    const auto [at, first] =
        entry_of_.emplace(mix ? facts.input + '\0' : facts.input, entries_.size());
    if (first) {
        entries_.push_back(entry);
    } else if (says_more(entry.outcome, entries_[at->second].outcome)) {
        entries_[at->second] = entry;
    }
}

std::vector<std::string> ResultLines::problems() const {
    std::vector<std::string> texts;
    for (const Problem& problem : problems_) {
        texts.push_back(problem.text);
    }
    return texts;
}

void ResultLines::sort() {
    if (planned_) {
        return;
    }
    entry_of_.clear();
    std::sort(entries_.begin(), entries_.end(), [](const Entry& a, const Entry& b) {
        return a.input == b.input ? a.mix < b.mix : path_less(a.input, b.input);
    });
}

FileFacts ResultLines::facts(std::size_t index) const {
    const Entry& entry = entries_[index];
    std::ifstream in(files_[entry.file], std::ios::binary);
    std::string line(static_cast<std::size_t>(entry.bytes), '\0');
    in.seekg(entry.offset);
    if (!in.read(&line[0], static_cast<std::streamsize>(line.size()))) {
        throw std::system_error(errno, std::generic_category(), files_[entry.file]);
    }
    return facts_from_json(nlohmann::ordered_json::parse(line));
}

}  // namespace quorvane
