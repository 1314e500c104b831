#include "leveling/engine/engine_run.h"

#include <fmt/format.h>

#include <filesystem>
#include <stdexcept>

#include "Common/files/whole_file.h"
#include "Common/level.h"
#include "leveling/engine/hooks.h"
#include "leveling/engine/passages.h"
#include "leveling/engine/refusal.h"
#include "leveling/engine/temporary_room.h"
#include "leveling/facts/file_error.h"
#include "leveling/storage/private_directory.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t kFullDiskBytes = 1 << 20;

int on_progress(void* context, float fraction) {
    const auto& progress = *static_cast<const std::function<void(double)>*>(context);
    progress(static_cast<double>(fraction));
    return 0;
}

/** The one way in for the engine, which takes a C function and its context. */
int open_place(void* run) {
    return static_cast<const EngineRun*>(run)->open_place();
}

int level(const EngineRun& run, std::function<void(double)> progress) {
    std::vector<std::string> words = {"", "--input-file", run.input, "--output-file", run.output};
    words.insert(words.end(), run.tuning.begin(), run.tuning.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    levelCollectFindings(1);
    levelHideIntermediates(1);
    levelLowerTarget(1);
    levelEndFlatRamps(run.ramps == Ramps::EndAtTarget ? 1 : 0);
    levelSetFinalFile(run.open_place ? open_place : nullptr, const_cast<EngineRun*>(&run));
    return levelMain(static_cast<int>(words.size()), argv.data(), "", &on_progress, &progress);
}

/** A file system that says nothing for itself is full where next to nothing is left. */
void require_room(const std::string& scratch) {
    std::error_code error;
    const fs::space_info space = fs::space(scratch, error);
    if (!error && space.available < kFullDiskBytes) {
        throw std::runtime_error(
            fmt::format("the disk with the temporary files, {}, is full",
                        fs::path(scratch).parent_path().parent_path().string()));
    }
}

/** The first cause, without the names of files that nobody knows. */
std::string reason_of(const LevelOutcome& outcome, const EngineRun& run) {
    std::string reason = outcome.reason;
    const std::string place = "the output";  // what the engine calls it
    const std::size_t at = outcome.output_failure != 0 ? reason.find(place) : std::string::npos;
    return at == std::string::npos ? reason : reason.replace(at, place.size(), run.place_name);
}

/** What the user should know of the level, or nothing. */
std::string level_note(const LevelFindings& found) {
    if (found.target_lowered_db > 0) {
        return fmt::format(
            "its target level was lowered by {:.1f} dB: clicks or loud peaks leave no room for "
            "more",
            found.target_lowered_db);
    }
    return "";
}

}  // namespace

EngineResult run_engine(const EngineRun& run, const std::function<void(double)>& progress) {
    const PrivateDirectory intermediates(run.scratch + "/engine");
    hooks::use_temporary_directory(intermediates.path());
    EngineResult result;
    hooks::deliver_with([&](const std::string& final_file, const std::string& output) {
        result.in_place = !fs::exists(final_file);
        if (!result.in_place) {
            move_whole(final_file, output);
        }
    });
    require_temporary_room(run.input, fs::path(run.scratch).parent_path().string());
    const int status = level(run, progress);
    hooks::deliver_with(nullptr);
    const LevelOutcome& outcome = *levelOutcome();
    if (status != 0) {
        if (outcome.output_failure == 0) {
            require_room(run.scratch);
        }
        throw std::runtime_error(reason_of(outcome, run));
    }
    const std::string refusal = refusal_of(outcome);
    if (!refusal.empty()) {
        throw std::runtime_error(refusal);
    }
    if (hooks::delivery() == hooks::kFailed) {
        throw std::runtime_error(hooks::delivery_failure());
    }
    result.leveled = outcome.kind == kLevelLeveled;
    result.cause = outcome.reason;
    if (result.leveled) {
        result.leveling = leveling_of(*levelFindings());
        result.note = level_note(*levelFindings());
    }
    return result;
}

}  // namespace quorvane
