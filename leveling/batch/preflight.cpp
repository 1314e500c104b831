#include "leveling/batch/preflight.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <system_error>
#include <thread>

#include "leveling/batch/groups.h"
#include "leveling/engine/temporary_room.h"
#include "leveling/storage/folders.h"
#include "leveling/storage/staged_output.h"
#include "leveling/words/text.h"
#include "leveling/worker/look.h"

/*
 * What can be found out before any work is: files that cannot be read, places that cannot be
 * written to, disks that will be full. It costs a look at each file's header and spares a night
 * that ends with the same error a thousand times. The headers are read in confined processes, as
 * all that strangers wrote is. Disks are only warned of: what is free changes
 * meanwhile.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

constexpr unsigned kMostThreads = 16;  // opening waits for disks and servers, not for cores
// Files for one process: its start is worth some ten looks, and its death costs one file.
constexpr std::size_t kLeastLooks = 8;
// Files that one process looks into, so that a crash costs few others a second look.
constexpr std::size_t kMostLooks = 64;

/** What the plan knows of a file. */
FileFacts facts_at_first(const PlannedFile& file) {
    FileFacts facts;
    facts.input = file.input;
    facts.output = file.output;
    facts.outcome = Outcome::Planned;
    facts.bytes = file.bytes;
    return facts;
}

/** The file will not be worked on; the run tells the cause in its turn. */
void fail(PlannedFile& file, const FileFacts& known, const std::string& cause) {
    file.known = std::make_shared<FileFacts>(known);
    file.known->outcome = Outcome::Failed;
    file.known->cause = cause;
}

/** A codec may crash on a media file, and a dry run has no worker that could meet it later. */
Job look_of(const Request& request, const PlannedFile& file) {
    Job job;
    job.input = fs::absolute(file.input).string();
    job.output = file.output.empty() ? "" : fs::absolute(file.output).string();
    job.options = job_options(request);
    job.options.look_inside = request.dry_run;
    return job;
}

/** Takes over what a look found, under the file's own names. */
FileFacts take_look(PlannedFile& file, FileFacts found) {
    found.input = file.input;
    found.output = file.output;
    found.bytes = file.bytes;
    if (found.outcome == Outcome::Failed) {
        fail(file, found, found.cause);
    }
    found.outcome = Outcome::Planned;
    return found;
}

/** Decimal units, as disks are sold and file managers count. */
std::string size_text(std::uintmax_t bytes) {
    constexpr double kGigabyte = 1e9;
    constexpr double kMegabyte = 1e6;
    const auto size = static_cast<double>(bytes);
    return size >= kGigabyte ? fmt::format("{:.1f} GB", size / kGigabyte)
                             : fmt::format("{:.1f} MB", size / kMegabyte);
}

/** The folders of the outputs: what is left in them, and have their disks the room? */
class OutputFolders {
  public:
    void add(const PlannedFile& file) {
        const fs::path output = file.output;
        Folder& folder = folders_[output.parent_path().string()];
        folder.names.insert(output.filename().string());
        folder.bytes += static_cast<std::uintmax_t>(file.bytes);
    }

    void remove_stale() const {
        for (const auto& [path, folder] : folders_) {
            remove_stale_parts(path.empty() ? "." : path, folder.names);
        }
    }

    void tell_full_disks(std::vector<std::string>& notes) const {
        std::map<dev_t, std::pair<std::string, std::uintmax_t>> disks;
        for (const auto& [path, folder] : folders_) {
            const std::string existing = existing_folder(path.empty() ? "." : path);

            struct stat status {};

            // Folders on one disk share its room.
            if (stat(existing.c_str(), &status) == 0) {
                auto& [name, sum] = disks[status.st_dev];
                name = existing;
                sum += folder.bytes;
            }
        }
        for (const auto& disk : disks) {
            const auto& [folder, bytes] = disk.second;
            std::error_code error;
            const auto free = fs::space(folder, error).available;
            if (!error && free < bytes) {
                notes.push_back(
                    fmt::format("the outputs need about {}, but the disk with {} has {} left",
                                size_text(bytes), printable(folder), size_text(free)));
            }
        }
    }

  private:
    struct Folder {
        std::set<std::string> names;  // of the outputs
        std::uintmax_t bytes = 0;
    };

    std::map<std::string, Folder> folders_;
};

/** At worst the largest files are worked on together, as many as there are jobs. */
void tell_full_temporary_disk(const Request& request,
                              std::vector<std::int64_t> sizes,
                              std::vector<std::string>& notes) {
    const std::size_t together = std::min<std::size_t>(request.jobs, sizes.size());
    const auto last = sizes.begin() + static_cast<std::ptrdiff_t>(together);
    std::partial_sort(sizes.begin(), last, sizes.end(), std::greater<>());
    double bytes = 0;
    std::for_each(sizes.begin(), last,
                  [&](std::int64_t size) { bytes += static_cast<double>(size) * kTemporarySizes; });
    std::error_code error;
    const fs::path folder = fs::temp_directory_path(error);
    const auto free = error ? 0 : fs::space(folder, error).available;
    if (!error && static_cast<double>(free) < bytes) {
        notes.push_back(fmt::format(
            "the temporary files need up to {}, but the disk with {} has {} left (TMPDIR names "
            "another folder, a smaller --jobs needs less)",
            size_text(static_cast<std::uintmax_t>(bytes)), folder.string(), size_text(free)));
    }
}

/** Looks into the files at these places, and fills in each one's seconds. */
void probe_some(const Request& request,
                std::vector<PlannedFile>& files,
                const std::vector<std::size_t>& places,
                Keep keep,
                std::vector<double>& seconds) {
    std::vector<Job> jobs;
    jobs.reserve(places.size());
    for (const std::size_t place : places) {
        jobs.push_back(look_of(request, files[place]));
    }
    std::vector<FileFacts> found = look_into_all(jobs);
    for (std::size_t i = 0; i < places.size(); ++i) {
        PlannedFile& file = files[places[i]];
        const FileFacts facts = take_look(file, std::move(found[i]));
        seconds[places[i]] = facts.duration_s();
        if (keep == Keep::All && !file.known) {
            file.known = std::make_shared<FileFacts>(facts);
        }
    }
}

/** Looks into all files that are not known yet, several at once. Returns each one's seconds. */
std::vector<double> probe_all(const Request& request, std::vector<PlannedFile>& files, Keep keep) {
    std::vector<std::size_t> unknown;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!files[i].known && !files[i].settling) {
            unknown.push_back(i);
        }
    }
    std::vector<double> seconds(files.size());
    // Of a single file its worker says at once what a look would say.
    if (unknown.empty() || (unknown.size() == 1 && !request.dry_run)) {
        return seconds;
    }
    const unsigned threads = std::clamp(2 * std::thread::hardware_concurrency(), 1u, kMostThreads);
    const std::size_t share = std::clamp(unknown.size() / threads, kLeastLooks, kMostLooks);
    std::atomic<std::size_t> next{0};  // the first that no thread has taken
    const auto probe_shares = [&] {
        for (std::size_t begin = 0; (begin = next.fetch_add(share)) < unknown.size();) {
            const std::size_t end = std::min(begin + share, unknown.size());
            probe_some(request, files,
                       {unknown.begin() + static_cast<std::ptrdiff_t>(begin),
                        unknown.begin() + static_cast<std::ptrdiff_t>(end)},
                       keep, seconds);
        }
    };
    std::vector<std::future<void>> others;  // each waits for its thread when it goes
    try {
        for (std::size_t i = 1; i < threads && i * share < unknown.size(); ++i) {
            others.push_back(std::async(std::launch::async, probe_shares));
        }
    } catch (const std::system_error&) {  // NOLINT(bugprone-empty-catch): fewer will do
    }
    probe_shares();
    for (std::future<void>& other : others) {
        other.get();
    }
    return seconds;
}

}  // namespace

Preflight preflight(const Request& request, std::vector<PlannedFile>& files, Keep keep) {
    probe_places(files);
    for (PlannedFile& file : files) {
        if (!file.problem.empty() && !file.known) {
            fail(file, facts_at_first(file), file.problem);
        }
    }
    const std::vector<double> seconds = probe_all(request, files, keep);
    fail_groups(files);
    // A check of what is ready counts as well as leveling.
    if (!request.separate && !request.plain &&
        (!request.analyze || !request.destinations.empty())) {
        refuse_conversations(files, seconds);
    }
    Preflight result;
    OutputFolders folders;
    std::vector<std::int64_t> sizes;
    for (std::size_t i = 0; i < files.size(); ++i) {
        PlannedFile& file = files[i];
        const bool to_do = !file.known || file.known->outcome == Outcome::Planned;
        if (!to_do || file.settling) {
            continue;
        }
        ++result.to_do;
        result.audio_s += seconds[i];
        if (!file.output.empty()) {
            sizes.push_back(file.bytes);
            folders.add(file);
        }
    }
    folders.tell_full_disks(result.notes);
    tell_full_temporary_disk(request, sizes, result.notes);
    if (!request.dry_run) {
        folders.remove_stale();
    }
    return result;
}

}  // namespace quorvane
