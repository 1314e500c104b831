#include "leveling/archive/record.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "leveling/archive/content_hash.h"
#include "leveling/words/text.h"

/*
 * Where an archive remembers what is done.
 *
 * Every folder that holds outputs has one file, .quorvane.jsonl, with a line for each output that
 * was ever placed in it. It stands beside the audio and not in it: the output's bytes stay a
 * function of the input and the options alone, formats without metadata are remembered like the
 * others, and ten thousand outputs are checked without opening one of them. It goes along when
 * people copy or move the folder, since it names the outputs by their names alone and knows them
 * again by their content.
 *
 * A line is appended before its output takes its name. Whoever is killed between the two leaves a
 * line for an output that is not there, which says nothing; the other order would leave an output
 * whose origin is unknown. When an output is replaced, both lines stay, and the one that fits the
 * bytes that are there counts.
 */
namespace quorvane {
namespace fs = std::filesystem;

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kStart = "{\"output\":\"";
constexpr const char* kForWord = "for=";
// Read at a time while the lines are indexed by the hashes of their names.
constexpr std::size_t kIndexedBytes = 1 << 20;
constexpr std::int64_t kEndBytes = 1 << 20;
/** The facts of a recording of 100 hours with a passage a minute take less than 1 MB. */
constexpr std::size_t kMostLineBytes = 16 << 20;

// Versions of the arithmetic. The plain one is that of version 3.0 of the program.
constexpr int kPlain = 1;
constexpr int kPrepared = 3;
constexpr int kPublished = 3;  // gain and limiter of a destination, on either way

std::int64_t nanoseconds(const timespec& time) {
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

/** The name as it stands in a line, with its quotes. Bytes that are not UTF-8 are replaced, so two
 * names may share a text; the state of the output distinguishes their records. */
std::string quoted(const std::string& name) {
    return dump(Json(name));
}

/** The quoted name at the start of a line, empty when it is not a complete line of ours. */
std::string quoted_name_in(const std::string& line) {
    const std::size_t open = std::strlen(kStart) - 1;
    if (line.compare(0, open + 1, kStart) != 0 || line.back() != '}') {
        return "";
    }
    for (std::size_t i = open + 1; i < line.size(); ++i) {
        if (line[i] == '\\') {
            ++i;
        } else if (line[i] == '"') {
            return line.substr(open, i + 1 - open);
        }
    }
    return "";
}

OutputRecord output_record_from(const Json& json) {
    return {{json.at("output_size"), json.at("output_mtime_ns")}, json.at("output_hash")};
}

DoneRecord record_from(const Json& json) {
    DoneRecord record;
    record.output = json.at("output");
    const OutputRecord made = output_record_from(json);
    record.output_state = made.state;
    record.output_hash = made.hash;
    record.input = json.at("input");
    record.input_state = {json.at("input_size"), json.at("input_mtime_ns")};
    record.input_hash = json.at("input_hash");
    for (const Json& other : json.value("others", Json::array())) {
        record.others.push_back(
            {other.at("input"), {other.at("size"), other.at("mtime_ns")}, other.at("hash")});
    }
    record.options = json.at("options");
    record.arithmetic = {json.value("way", ""), json.at("arithmetic")};
    record.facts = facts_from_json(json.at("facts"));
    return record;
}

}  // namespace

// Size and time; the inode is left out, as copies and restored archives change it.
bool operator==(const FileState& one, const FileState& other) {
    return one.size == other.size && one.mtime_ns == other.mtime_ns;
}

bool operator!=(const FileState& one, const FileState& other) {
    return !(one == other);
}

bool is_same_path(const std::string& one, const std::string& other) {
    std::error_code error;
    const auto plain = [&error](const std::string& path) {
        return fs::absolute(path, error).lexically_normal();
    };
    return plain(one) == plain(other) || fs::equivalent(one, other, error);
}

// A file that cannot be looked at counts as absent.
FileState state_of(const std::string& path) {
    struct stat status {};

    if (stat(path.c_str(), &status) != 0) {
        return {};
    }
#ifdef __APPLE__
    return {status.st_size, nanoseconds(status.st_mtimespec)};
#else
    return {status.st_size, nanoseconds(status.st_mtim)};
#endif
}

Arithmetic arithmetic_of(Way way, const std::string& destination) {
    if (way == Way::Plain) {
        return {"plain", destination.empty() ? kPlain : kPublished};
    }
    return {"prepared", kPrepared};
}

// The name comes first, so that a search need not parse the rest of the line.
std::string to_line(const DoneRecord& record) {
    FileFacts facts = record.facts;
    strip_curves(facts);
    Json json;
    json["output"] = record.output;  // first: RecordBook finds its lines by it
    json["output_size"] = record.output_state.size;
    json["output_mtime_ns"] = record.output_state.mtime_ns;
    json["output_hash"] = record.output_hash;
    json["input"] = record.input;
    json["input_size"] = record.input_state.size;
    json["input_mtime_ns"] = record.input_state.mtime_ns;
    json["input_hash"] = record.input_hash;
    for (const InputRecord& other : record.others) {
        json["others"].push_back({{"input", other.path},
                                  {"size", other.state.size},
                                  {"mtime_ns", other.state.mtime_ns},
                                  {"hash", other.hash}});
    }
    json["options"] = record.options;
    json["arithmetic"] = record.arithmetic.version;
    json["way"] = record.arithmetic.way;
    json["done"] = utc_time_now();
    json["facts"] = to_json(facts);
    return dump(json) + "\n";
}

// What changes the output's samples, and nothing else: --report or --jobs make no output old.
std::string options_key(const std::vector<std::string>& tuning,
                        bool measure,
                        int audio_stream,
                        const std::string& audio_codec,
                        const std::string& destination,
                        const std::string& group,
                        const std::string& channels) {
    const std::string file_word = "--options-file=";
    std::string key;
    for (const std::string& word : tuning) {
        const bool names_file = word.rfind(file_word, 0) == 0;
        key += names_file ? file_word + content_hash(word.substr(file_word.size())) : word;
        key += ' ';
    }
    if (audio_stream != 0 || !audio_codec.empty()) {
        key += fmt::format("stream={} codec={} ", audio_stream, audio_codec);
    }
    if (!channels.empty()) {
        key += fmt::format("channels={} ", channels);
    }
    if (!group.empty()) {
        key += fmt::format("together={} ", group);
    }
    if (!destination.empty()) {
        key += fmt::format("{}{} ", kForWord, destination);
    }
    // The measured loudness goes into the broadcast chunk of the files that have one.
    return key + (measure ? "measured" : "unmeasured");
}

// The tracks of a conversation change each other's gains, so all of them count.
std::string group_key(const std::vector<std::string>& inputs, bool aligned) {
    std::vector<std::string> names;
    names.reserve(inputs.size());
    for (const std::string& input : inputs) {
        names.push_back(fs::path(input).filename().string());
    }
    std::sort(names.begin(), names.end());
    std::string text;
    for (const std::string& name : names) {
        text += fmt::format("{}:{} ", name.size(), name);
    }
    return text_hash(text) + (aligned ? "-aligned" : "");
}

// It is the last word but one.
std::string destination_in(const std::string& options) {
    const std::size_t last = options.rfind(' ');
    if (last == std::string::npos || last == 0) {
        return "";
    }
    const std::size_t before = options.rfind(' ', last - 1);
    const std::size_t begin = before == std::string::npos ? 0 : before + 1;
    const std::string word = options.substr(begin, last - begin);
    const std::size_t prefix = std::strlen(kForWord);
    return word.compare(0, prefix, kForWord) == 0 ? word.substr(prefix) : "";
}

std::string record_path(const std::string& output) {
    const fs::path folder = fs::path(output).parent_path();
    return ((folder.empty() ? fs::path(".") : folder) / kRecordName).string();
}

// Found before the work: an output without its record would be leveled again each time.
std::string record_problem(const std::string& path) {
    struct stat status {};

    if (lstat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) {
        return "";
    }
    return fmt::format(
        "{} is {}, and what is done is recorded in a regular file of that name; move it away", path,
        S_ISLNK(status.st_mode)   ? "a link"
        : S_ISDIR(status.st_mode) ? "a folder"
                                  : "a pipe or a device");
}

RecordBook::RecordBook(const std::string& path, Part part)
    // Without waiting: a pipe of that name would wait for its writer.
    : file_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK)) {
    struct stat status {};

    if (file_ >= 0 && fstat(file_, &status) == 0 && S_ISREG(status.st_mode)) {
        const off_t size = part == Part::End ? status.st_size : 0;
        index(std::max<std::int64_t>(0, size - kEndBytes));
    }
}

RecordBook::~RecordBook() {
    if (file_ >= 0) {
        close(file_);
    }
}

// offset: where the text begins; a line that begins before it is incomplete and is skipped.
void RecordBook::index(std::int64_t offset) {
    std::string text;
    std::vector<char> block(kIndexedBytes);
    lseek(file_, offset, SEEK_SET);
    for (;;) {
        const ssize_t got = read(file_, block.data(), block.size());
        if (got <= 0) {
            return;  // without an end: another process is writing it, or could not
        }
        std::size_t begin = 0;
        std::size_t from = text.size();  // what was there before holds no line end
        text.append(block.data(), static_cast<std::size_t>(got));
        for (std::size_t end = 0; (end = text.find('\n', from)) != std::string::npos;) {
            const std::string name = quoted_name_in(text.substr(begin, end - begin));
            if (!name.empty()) {
                places_.emplace(name_hash(name), Place{offset + static_cast<std::int64_t>(begin),
                                                       static_cast<std::int64_t>(end - begin)});
            }
            begin = from = end + 1;
        }
        text.erase(0, begin);
        offset += static_cast<std::int64_t>(begin);
        if (text.size() > kMostLineBytes) {
            // No record is that long. What is left of it up to its end is passed over as well,
            // since it does not begin like one.
            offset += static_cast<std::int64_t>(text.size());
            text.clear();
        }
    }
}

// The newest first.
std::vector<std::string> RecordBook::lines_of(const std::string& name) const {
    const std::string wanted = quoted(name);
    const auto [first, last] = places_.equal_range(name_hash(wanted));
    std::vector<Place> places;
    for (auto at = first; at != last; ++at) {
        places.push_back(at->second);
    }
    std::sort(places.begin(), places.end(),
              [](const Place& a, const Place& b) { return a.offset > b.offset; });
    std::vector<std::string> lines;
    for (const Place& place : places) {
        std::string line(static_cast<std::size_t>(place.bytes), '\0');
        if (pread(file_, &line[0], line.size(), place.offset) == place.bytes &&
            quoted_name_in(line) == wanted) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

std::vector<DoneRecord> RecordBook::find(const std::string& name) const {
    std::vector<DoneRecord> records;
    for (const std::string& line : lines_of(name)) {
        try {
            records.push_back(record_from(Json::parse(line)));
        } catch (const nlohmann::json::exception&) {
            // Damaged, or of another version: it proves nothing.
        }
    }
    return records;
}

std::vector<OutputRecord> RecordBook::find_outputs(const std::string& name) const {
    std::vector<OutputRecord> records;
    for (const std::string& line : lines_of(name)) {
        // What is about the output comes first; inside a name the quotes would be escaped.
        const std::string head = line.substr(0, line.find(",\"input\":")) + "}";
        try {
            records.push_back(output_record_from(Json::parse(head)));
        } catch (const nlohmann::json::exception&) {
            // Damaged, or of another version: it proves nothing.
        }
    }
    return records;
}

}  // namespace quorvane
