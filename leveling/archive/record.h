#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * How a file stood at one moment: its size in bytes and its modification time in nanoseconds since
 * 1970. A file that is not there has the size kNoFile.
 */
struct FileState {
    static constexpr std::int64_t kNoFile = -1;

    std::int64_t size = kNoFile;
    std::int64_t mtime_ns = 0;

    bool exists() const { return size != kNoFile; }
};

bool operator==(const FileState& one, const FileState& other);
bool operator!=(const FileState& one, const FileState& other);

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(FileState, size, mtime_ns)

/** Whether two paths lead to one file, which need not exist. */
bool is_same_path(const std::string& one, const std::string& other);

/** Follows links. What cannot be looked at counts as not there. */
FileState state_of(const std::string& path);

/** How the samples of an output are computed. */
enum class Way {
    Prepared,  // as people get it by default
    Plain      // by the engine alone, with --plain
};

/**
 * What the samples of an output depend on besides the input and the options. A version is raised
 * whenever the samples of any output of its way change; outputs of earlier versions are kept, and
 * reported, until they are redone.
 */
struct Arithmetic {
    std::string way;  // "prepared", "plain"; empty in records of version 3.0, which knew one way
    int version = 0;
};

/** Of an output that is made now. The destination is a word of --for, empty without one. */
Arithmetic arithmetic_of(Way way, const std::string& destination = "");

/** An input as it was when it was read. */
struct InputRecord {
    std::string path;  // for people; the archive may have moved since
    FileState state;
    std::string hash;
};

/** That one output was made: from what, with what, and what came out. */
struct DoneRecord {
    std::string output;  // its name in the folder of the record
    FileState output_state;
    std::string output_hash;
    std::string input;  // for people; the archive may have moved since
    FileState input_state;
    std::string input_hash;
    std::vector<InputRecord> others;  // the other tracks of its conversation
    std::string options;              // options_key()
    Arithmetic arithmetic = arithmetic_of(Way::Prepared);
    FileFacts facts;  // without curves
};

/** The part of a record that recognises the output. */
struct OutputRecord {
    FileState state;
    std::string hash;
};

/** The record as a line of JSON, with its line end. */
std::string to_line(const DoneRecord& record);

/**
 * What the words for the engine and the measurement mean for an output's bytes, as one text. An
 * options file counts with its content, not its name. Throws std::system_error when it cannot be
 * read.
 */
std::string options_key(const std::vector<std::string>& tuning,
                        bool measure,
                        int audio_stream = 0,
                        const std::string& audio_codec = "",
                        const std::string& destination = "",
                        const std::string& group = "",
                        const std::string& channels = "");

/** The group of options_key(): which files are leveled together, by their names in any order. */
std::string group_key(const std::vector<std::string>& inputs, bool aligned);

/** The word of the destination in a key that options_key() made, "" where there is none. */
std::string destination_in(const std::string& options);

/** The file that holds the records of all outputs in a folder. */
constexpr const char* kRecordName = ".quorvane.jsonl";
std::string record_path(const std::string& output);

/** Why nothing can be recorded at the path, "" when something can: a link, a pipe, a folder. */
std::string record_problem(const std::string& path);

/**
 * The records of one folder. Only the place of each line is kept, so that a folder of 100,000
 * outputs costs some 15 MB; a line is parsed when it is asked for.
 */
class RecordBook {
  public:
    /** The end holds the last thousand records or so. */
    enum class Part { Whole, End };

    /** A folder without records, or one that cannot be read, gives an empty book. */
    explicit RecordBook(const std::string& path, Part part = Part::Whole);
    ~RecordBook();
    RecordBook(const RecordBook&) = delete;
    RecordBook& operator=(const RecordBook&) = delete;

    /** The records of an output, by its name in the folder, the newest first. */
    std::vector<DoneRecord> find(const std::string& name) const;

    /** The same records without their facts, which are most of the work of reading one. */
    std::vector<OutputRecord> find_outputs(const std::string& name) const;

  private:
    struct Place {
        std::int64_t offset;
        std::int64_t bytes;
    };

    void index(std::int64_t offset);
    std::vector<std::string> lines_of(const std::string& name) const;

    int file_;
    std::unordered_multimap<std::uint64_t, Place> places_;  // by the hash of the quoted name
};

}  // namespace quorvane
