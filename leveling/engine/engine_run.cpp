#include "leveling/engine/engine_run.h"

#include <fmt/format.h>

#include <filesystem>
#include <iostream>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

#include "Common/files/whole_file.h"
#include "Common/level.h"
#include "Common/reporting/write_error.h"
#include "leveling/engine/passages.h"
#include "leveling/engine/refusal.h"
#include "leveling/engine/temporary_room.h"
#include "leveling/facts/no_room.h"
#include "leveling/storage/private_directory.h"

namespace quorvane {
namespace fs = std::filesystem;

namespace {

// A disk with fewer bytes left counts as full.
constexpr std::uintmax_t kFullDiskBytes = 1 << 20;

/** The result 0 means that the engine continues. */
int on_progress(void* context, float fraction) {
    const auto& progress = *static_cast<const std::function<void(double)>*>(context);
    progress(static_cast<double>(fraction));
    return 0;
}

int open_place(void* run) {
    return static_cast<const EngineRun*>(run)->open_place();
}

// Of this thread, since other threads may have engine runs of their own.
thread_local const EngineWords* engine_words = nullptr;

/** The process's own output says what a worker said before it ended in an unexpected way. */
void write_message(void* /*context*/, LevelWords kind, const char* text) {
    if (engine_words != nullptr) {
        (*engine_words)(text);
        return;
    }
    (kind == kLevelWordsOutput ? std::cout : std::cerr) << text << std::flush;
}

/** What became of the finished file. */
struct Delivery {
    bool in_place = false;
    std::string failure;
};

/** The engine's outcome stays that of the leveling: where the file could not go is known here. */
int deliver(void* context, const char* final_file, const char* output) {
    Delivery& delivery = *static_cast<Delivery*>(context);
    try {
        delivery.in_place = !fs::exists(final_file);
        if (!delivery.in_place) {
            move_whole(final_file, output);
        }
    } catch (const std::runtime_error& failure) {
        delivery.failure = failure.what();
    }
    return 0;
}

using RunObject = std::unique_ptr<LevelRun, void (*)(LevelRun*)>;

/** Throws std::bad_alloc, the only way in which this can fail. */
RunObject make_run(const EngineRun& run,
                   const std::string& intermediates,
                   std::function<void(double)>& progress,
                   Delivery& delivery) {
    RunObject object(levelRunNew(), levelRunFree);
    bool complete =
        object && levelRunSetTemporaryDirectory(object.get(), intermediates.c_str()) == 0;
    for (const std::string& word : run.tuning) {
        complete = complete && levelRunAddOption(object.get(), word.c_str()) == 0;
    }
    if (!complete) {
        throw std::bad_alloc();
    }
    // Findings go into the facts; where loud peaks leave no room the target is lowered, with a
    // note.
    levelRunSwitch(object.get(), kLevelCollectFindings, 1);
    levelRunSwitch(object.get(), kLevelHideIntermediates, 1);
    levelRunSwitch(object.get(), kLevelLowerTarget, 1);
    levelRunSwitch(object.get(), kLevelEndFlatRamps, run.ramps == Ramps::EndAtTarget ? 1 : 0);
    levelRunSetFinalFile(object.get(), run.open_place ? open_place : nullptr,
                         const_cast<EngineRun*>(&run), run.place_name.c_str());
    levelRunSetDelivery(object.get(), deliver, &delivery);
    levelRunSetProgress(object.get(), on_progress, &progress);
    levelRunSetMessages(object.get(), write_message, nullptr);
    return object;
}

/** A file system that says nothing for itself is full where next to nothing is left. */
void require_room(const std::string& scratch) {
    std::error_code error;
    const fs::space_info space = fs::space(scratch, error);
    if (!error && space.available < kFullDiskBytes) {
        throw NoRoomError(fmt::format("the disk with the temporary files, {}, is full",
                                      fs::path(scratch).parent_path().parent_path().string()));
    }
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

TakeEngineWords::TakeEngineWords(EngineWords words)
    : words_(std::move(words)), before_(engine_words) {
    engine_words = &words_;
}

TakeEngineWords::~TakeEngineWords() {
    engine_words = before_;
}

EngineResult run_engine(const EngineRun& run, const std::function<void(double)>& progress) {
    const PrivateDirectory intermediates(run.scratch + "/engine");
    Delivery delivery;
    std::function<void(double)> on_fraction = progress;
    const RunObject object = make_run(run, intermediates.path(), on_fraction, delivery);
    // A disk that is too small fails the file now and not after minutes.
    require_temporary_room(run.input, fs::path(run.scratch).parent_path().string());
    // One of an earlier file in this process.
    reporting::forget_write_error();
    const int status = levelRunFile(object.get(), run.input.c_str(), run.output.c_str());
    const LevelOutcome& outcome = *levelRunOutcome(object.get());
    if (status != 0) {
        // A failure at the output is about the output's disk and not about this one.
        if (outcome.failed_file != kLevelFinalFile) {
            require_room(run.scratch);
        }
        fail_write(reporting::first_write_error(), outcome.reason);
    }
    const std::string refusal = refusal_of(outcome);
    if (!refusal.empty()) {
        fail_write(reporting::first_write_error(), refusal);
    }
    if (!delivery.failure.empty()) {
        fail_write(reporting::first_write_error(), delivery.failure);
    }
    EngineResult result;
    result.in_place = delivery.in_place;
    result.leveled = outcome.kind == kLevelLeveled;
    result.cause = outcome.reason;
    if (result.leveled) {
        const LevelFindings& found = *levelRunFindings(object.get());
        result.leveling = leveling_of(found);
        result.note = level_note(found);
    }
    return result;
}

}  // namespace quorvane
