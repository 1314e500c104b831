#include "leveling/inputs/find_files.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>
#include <unordered_map>
#include <utility>

#include "leveling/archive/known_outputs.h"
#include "leveling/inputs/file_kind.h"
#include "leveling/storage/path_order.h"

/*
 * Everything is collected first and sorted by how direct its path is; only then is each file taken
 * once. The order of directory entries differs between machines: taking files in that order would
 * choose a link over its file on one machine and not on the next.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

bool ends_with(const std::string& text, const std::string& end) {
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

/** The last part of a folder's path; of "." and ".." that of the folder they mean. */
fs::path name_of(const fs::path& folder) {
    std::error_code error;
    const fs::path name =
        folder.has_filename() ? folder.filename() : folder.parent_path().filename();
    return name.empty() || name == "." || name == ".." ? fs::canonical(folder, error).filename()
                                                       : name;
}

/** A search of all paths; its result is complete after finish(). */
class FolderSearch {
  public:
    FolderSearch(const SearchRules& rules, FoundFiles& found) : rules_(rules), found_(found) {
        std::error_code ignored;
        if (!rules.output_dir.empty()) {
            // It may not exist yet.
            output_dir_ = fs::weakly_canonical(rules.output_dir, ignored);
        }
    }

    // Folders first and links to folders after them, so that a file which can be reached both ways
    // is found under its own path.
    void search(const fs::path& root) {
        // What this root adds is counted, so that an empty folder can be reported.
        const std::size_t before = candidates_.size() + found_.problems.size();
        left_out_outputs_ = false;
        links_.push_back(root);
        while (!links_.empty()) {
            const fs::path next = links_.back();
            links_.pop_back();
            enter(next, root);
        }
        if (candidates_.size() + found_.problems.size() == before) {
            found_.problems.push_back(
                {root.string(), left_out_outputs_
                                    ? "holds only outputs of earlier runs; a file that is named "
                                      "itself is leveled once more"
                                    : "holds no audio file to level"});
        }
    }

    /** A file that is named. */
    void take(const fs::path& path) {
        std::error_code error;
        const bool is_link = fs::is_symlink(path, error);
        const bool is_output = rules_.own_outputs == OwnOutputs::LeaveOut &&
                               known_.look_up(path.string()) == KnownOutputs::Known::Output;
        const fs::path folder = path.parent_path();
        const bool keeps_folder = rules_.top == Top::Keep && !folder.empty() && folder != ".";
        FoundFile file{path.string(),
                       ((keeps_folder ? name_of(folder) : fs::path()) / path.filename()).string()};
        if (is_output) {
            file.note = "is an output of an earlier run; it was taken because it was named";
        }
        take(file, path, is_link ? Link::Yes : Link::No);
    }

    /** One file below a searched folder, as a search of that folder would come upon it. */
    void consider(const fs::path& path, const fs::path& root) {
        std::error_code error;
        const fs::path folder = path.parent_path();
        const fs::path real = fs::canonical(folder, error);
        const fs::directory_entry entry(path, error);
        // The rules of enter(), for a single file.
        if (error || is_left_out(real, folder, root) || is_own_output(entry, gets_outputs(real))) {
            return;
        }
        std::vector<fs::directory_entry> files;
        sort_out(entry, files);
        take_all(files, root);
    }

    // Gives each file once: under its own path before one through a linked folder before a link.
    void finish() {
        // Stable: files of equal rank keep the order in which they were found.
        std::stable_sort(
            candidates_.begin(), candidates_.end(),
            [](const Candidate& a, const Candidate& b) { return a.detour < b.detour; });
        std::unordered_map<std::string, std::size_t> taken;  // place in found_.files
        for (Candidate& candidate : candidates_) {
            const auto [first, is_new] =
                taken.emplace(std::move(candidate.real), found_.files.size());
            if (is_new) {
                found_.files.push_back(std::move(candidate.file));
                continue;
            }
            // A file that was named once stays named, however it was found first.
            if (candidate.file.origin == FoundFile::Origin::Named) {
                found_.files[first->second].origin = FoundFile::Origin::Named;
            }
            // Only links are reported; the same file behind two paths is not worth a line.
            if (candidate.detour == 2) {
                found_.passed_over.push_back(
                    {candidate.file.path, "is a link to " + found_.files[first->second].path});
            }
        }
    }

  private:
    enum class Link { Yes, No };

    struct Candidate {
        FoundFile file;
        std::string real;
        int detour;  // 0: its own path, 1: through a linked folder, 2: a link itself
    };

    /** Adds a candidate. Its folder is resolved once for all files in it. */
    void take(const FoundFile& file, const fs::path& path, Link link) {
        std::error_code error;
        if (const fs::path folder = path.parent_path(); folder != folder_ || !folder_known_) {
            folder_ = folder;
            folder_known_ = true;
            const fs::path named = folder.empty() ? fs::path(".") : folder;
            real_folder_ = fs::canonical(named, error);
            // An empty last part on both sides, so that a slash at the end makes no difference.
            own_folder_ = fs::absolute(named, error).lexically_normal() / "" == real_folder_ / "";
        }
        const bool is_link = link == Link::Yes;
        const fs::path real = is_link ? fs::canonical(path, error) : real_folder_ / path.filename();
        if (error) {
            found_.problems.push_back({path.string(), error.message()});
            return;
        }
        candidates_.push_back({file, real.string(), is_link ? 2 : own_folder_ ? 0 : 1});
    }

    /** A folder with all below it; links to folders are left for later. */
    void enter(const fs::path& folder, const fs::path& root) {
        std::error_code error;
        const fs::path real = fs::canonical(folder, error);
        // Each real folder is entered once, so links that lead in a circle end.
        if (!error && (is_left_out(real, folder, root) || !entered_.insert(real).second)) {
            return;
        }
        fs::directory_iterator entries(folder, error);
        if (error) {
            found_.problems.push_back({folder.string(), error.message()});
            return;
        }
        std::vector<fs::path> folders;
        std::vector<fs::directory_entry> files;
        for (const fs::directory_iterator end; !error && entries != end; entries.increment(error)) {
            const fs::path path = entries->path();
            // Hidden entries are left out.
            if (path.filename().string().front() == '.') {
                continue;
            }
            // The entry knows its type from the folder, without another look at the file.
            std::error_code unreadable;
            if (entries->is_directory(unreadable)) {
                (entries->is_symlink(unreadable) ? links_ : folders).push_back(path);
            } else if (!is_own_output(*entries, gets_outputs(real))) {
                sort_out(*entries, files);
            } else {
                left_out_outputs_ = true;
            }
        }
        if (error) {
            found_.problems.push_back({folder.string(), error.message()});
        }
        take_all(files, root);
        for (const fs::path& path : folders) {
            enter(path, root);
        }
    }

    /** Adds the files with their paths below the root, for the folders of the outputs. */
    void take_all(const std::vector<fs::directory_entry>& files, const fs::path& root) {
        const fs::path top = rules_.top == Top::Keep ? name_of(root) : fs::path();
        for (const fs::directory_entry& file : files) {
            std::error_code unreadable;
            const fs::path& path = file.path();
            take({path.string(), (top / path.lexically_relative(root)).string(), "",
                  FoundFile::Origin::Searched},
                 path, file.is_symlink(unreadable) ? Link::Yes : Link::No);
        }
    }

    /** The output folder, where outputs have the names of their inputs. */
    bool is_left_out(const fs::path& real, const fs::path& folder, const fs::path& root) const {
        return rules_.suffix.empty() && !output_dir_.empty() && real == output_dir_ &&
               folder != root;
    }

    /** Whether the folder is the output folder or lies below it. */
    bool gets_outputs(const fs::path& real) const {
        return !output_dir_.empty() &&
               std::mismatch(output_dir_.begin(), output_dir_.end(), real.begin(), real.end())
                       .first == output_dir_.end();
    }

    /** Keeps audio files, lists what is not supported, and reports links to nowhere. */
    void sort_out(const fs::directory_entry& entry, std::vector<fs::directory_entry>& files) {
        const fs::path& path = entry.path();
        std::error_code error;
        const bool regular = entry.is_regular_file(error);
        // A link whose target is missing.
        const bool lost = !regular && !entry.exists(error);
        if (!regular && !lost) {
            return;
        }
        const FileKind kind = file_kind(path);
        if (kind == FileKind::Wanted && lost) {
            found_.problems.push_back(
                {path.string(), "cannot be followed: the link leads nowhere"});
        } else if (kind == FileKind::Wanted) {
            files.push_back(entry);
        } else if (kind == FileKind::Unsupported) {
            found_.unsupported.push_back(path);
        }
    }

    // An edited output is a recording of its own, except where this run puts its outputs.
    bool is_own_output(const fs::directory_entry& entry, bool gets_outputs) {
        const fs::path& path = entry.path();
        const bool has_suffix =
            !rules_.suffix.empty() && ends_with(path.stem().string(), rules_.suffix);
        if (rules_.own_outputs == OwnOutputs::Take || (has_suffix && gets_outputs)) {
            return has_suffix;
        }
        std::error_code error;
        const fs::path real = entry.is_symlink(error) ? fs::weakly_canonical(path, error) : path;
        const KnownOutputs::Known known = known_.look_up(real.string());
        return known == KnownOutputs::Known::Output ||
               (has_suffix && known == KnownOutputs::Known::No);
    }

    const SearchRules& rules_;
    fs::path output_dir_;
    KnownOutputs known_;
    FoundFiles& found_;
    bool left_out_outputs_ = false;  // in the folder that is being searched
    std::set<fs::path> entered_;
    std::vector<Candidate> candidates_;
    bool folder_known_ = false;  // of the last file
    fs::path folder_;
    fs::path real_folder_;
    bool own_folder_ = false;
    std::vector<fs::path> links_;
};

}  // namespace

// For a watch, which knows what has changed and need not search the whole folder again.
FoundFiles find_files_below(const std::string& root,
                            const std::vector<std::string>& paths,
                            const SearchRules& rules) {
    FoundFiles found;
    FolderSearch search(rules, found);
    for (const std::string& path : paths) {
        search.consider(path, root);
    }
    search.finish();
    return found;
}

FoundFiles find_files(std::vector<std::string> paths, const SearchRules& rules) {
    FoundFiles found;
    FolderSearch search(rules, found);
    for (std::string& text : paths) {
        const fs::path path = text;
        std::error_code error;
        const fs::file_status status = fs::status(path, error);
        if (fs::is_directory(status)) {
            search.search(path);
        } else if (fs::is_regular_file(status)) {
            search.take(path);
        } else if (status.type() == fs::file_type::not_found) {
            found.problems.push_back({std::move(text), "does not exist"});
        } else {
            found.problems.push_back(
                {std::move(text), error ? error.message() : "is not a file or folder"});
        }
    }
    search.finish();
    // Folder entries come in an order that differs between machines.
    std::sort(found.files.begin(), found.files.end(),
              [](const FoundFile& a, const FoundFile& b) { return path_less(a.path, b.path); });
    std::sort(found.unsupported.begin(), found.unsupported.end());
    return found;
}

}  // namespace quorvane
