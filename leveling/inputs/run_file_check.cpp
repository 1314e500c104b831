#include "leveling/inputs/run_file_check.h"

#include <unistd.h>

#include <filesystem>
#include <set>

#include "leveling/archive/record.h"
#include "leveling/storage/run_files.h"

namespace quorvane {
namespace {

/** A file, and how a message calls it. */
struct NamedFile {
    const char* name;
    std::string path;  // empty: there is none
};

/** The place of an option that takes "-" for a standard stream. */
std::string file_in(const std::string& place) {
    return place == "-" ? "" : place;
}

/** What a run writes besides outputs and records: an option that names one more is added here. */
std::vector<NamedFile> written_files(const Request& request) {
    return {{"--failed", request.failed},
            {"--log", request.log},
            {"--json", file_in(request.json)},
            {"--csv", request.csv},
            {"--report", request.report}};
}

/** The engine reads it in every worker, so it is one of the run's inputs. */
std::string options_file_in(const std::vector<std::string>& tuning) {
    const std::string word = "--options-file=";
    for (const std::string& option : tuning) {
        if (option.rfind(word, 0) == 0) {
            return option.substr(word.size());
        }
    }
    return "";
}

/** What a run reads besides its recordings. */
std::vector<NamedFile> read_files(const Request& request) {
    return {{"--files-from", file_in(request.files_from)},
            {"--plan", request.plan},
            {"--options-file", options_file_in(request.tuning)}};
}

/** The records of all folders that get outputs, each once however its folder is spelled. */
std::set<std::string> records_of(const std::vector<PlannedFile>& files) {
    std::set<std::string> paths;
    PathResolver resolver;
    std::string last;
    for (const PlannedFile& file : files) {
        if (file.output.empty()) {
            continue;
        }
        std::string path = record_path(file.output);
        if (path != last) {
            paths.insert(resolver.placed(path));
            last = std::move(path);
        }
    }
    return paths;
}

void add_all(RunFiles& all, FileUse use, const std::vector<NamedFile>& files) {
    for (const NamedFile& file : files) {
        if (!file.path.empty()) {
            all.add(use, file.name, file.path);
        }
    }
}

/** All that the request name. The lists must outlive `all`. */
void add_named_files(RunFiles& all,
                     const Request& request,
                     const std::vector<NamedFile>& written,
                     const std::vector<NamedFile>& read) {
    if (!request.report.empty()) {
        all.add_page_folder("--report", request.report);
    }
    all.add_stream("the standard output", STDOUT_FILENO);
    all.add_stream("the error output", STDERR_FILENO);
    add_all(all, FileUse::Written, written);
    add_all(all, FileUse::Read, read);
}

}  // namespace

void check_run_files(const Request& request,
                     const std::vector<PlannedFile>& files,
                     const std::vector<std::string>& results) {
    const std::vector<NamedFile> written = written_files(request);
    const std::vector<NamedFile> read = read_files(request);
    const std::set<std::string> records = records_of(files);
    RunFiles all;
    try {
        add_named_files(all, request, written, read);
        for (const std::string& record : records) {
            all.add(FileUse::Written, "the record", record);
        }
        for (const std::string& result : results) {
            all.add(FileUse::Read, "the results", result);
        }
        for (const PlannedFile& file : files) {
            if (file.skip.empty()) {
                all.add(FileUse::Read, "the input", file.input);
            }
            if (!file.output.empty()) {
                all.add(FileUse::Output, "the output", file.output);
            }
        }
        for (const PlannedFile& file : files) {
            if (!file.skip.empty()) {
                all.add(FileUse::Skipped, "the recording", file.input);
            }
        }
    } catch (const FileClash& clash) {
        throw UsageError(clash.what());
    }
}

void check_missing_inputs(const Request& request, const std::vector<SearchProblem>& missing) {
    const std::vector<NamedFile> written = written_files(request);
    const std::vector<NamedFile> read = read_files(request);
    RunFiles all;
    try {
        add_named_files(all, request, written, read);
        for (const SearchProblem& problem : missing) {
            all.check_read("the input", problem.path);
        }
    } catch (const FileClash& clash) {
        throw UsageError(clash.what());
    }
}

}  // namespace quorvane
