#include "Common/level.h"

#include <memory>
#include <mutex>

#include "Common/level/callbacks.h"
#include "Common/level/process.h"
#include "Common/platform.h"
#include "Common/reporting/cancel.h"
#include "Common/reporting/failure.h"
#include "Common/run/engine_call.h"
#include "Common/run/outcome_record.h"

/*
 * The engine's C entry for command lines. What callers set for later runs is kept for the whole
 * process; each run works on the copy that levelMain makes.
 */

using level_engine::mover_for;
using level_engine::process;
using level_engine::set_final_file;
using level_engine::sink_for;

namespace {

template <class Change>
void change_settings(const Change& change) {
    const std::lock_guard<std::mutex> lock(process().mutex);
    change(process().settings);
}

RunSettings settings_of_this_run(LevelProgress progress, void* context) {
    const std::lock_guard<std::mutex> lock(process().mutex);
    RunSettings settings = process().settings;
    settings.messages = reporting::message_sink();
    settings.progress = progress;
    settings.progress_context = context;
    return settings;
}

}  // namespace

int levelMain(int argc,
              char** argv,
              const char* /*reserved*/,
              LevelProgress progress,
              void* callbackContext) {
    const RunSettings settings = settings_of_this_run(progress, callbackContext);
    const auto record = std::make_shared<OutcomeRecord>(OutcomeRecord::Collecting::kByProcess);
    const auto keep_left_files = [&record] {
        const std::lock_guard<std::mutex> lock(process().mutex);
        process().left = record->left_files().value_or(process().left);
    };
    try {
        const int result = call_engine(argc, argv, settings, record);
        keep_left_files();
        return result;
    } catch (...) {
        keep_left_files();
        throw;
    }
}

void levelSetPlatform(const LevelPlatform* platform) {
    const LevelPlatform given = platform != nullptr ? *platform : LevelPlatform{};
    change_settings([&](RunSettings& settings) {
        settings.deliver = mover_for(given.deliver, given.context);
        settings.find_temporary_directory = nullptr;
        if (given.copy_temporary_directory != nullptr) {
            settings.find_temporary_directory = [given] {
                return given.copy_temporary_directory(given.context);
            };
        }
    });
}

void levelRequestCancel(void) {
    request_cancel();
}

void levelClearCancel(void) {
    clear_cancel();
}

void levelAskToCancel(LevelAsksToCancel asks, void* context) {
    change_settings([&](RunSettings& settings) {
        settings.asks_to_cancel = asks;
        settings.cancel_context = context;
    });
}

void levelKeepIntermediates(int keep) {
    change_settings([&](RunSettings& settings) { settings.keep_intermediates = keep != 0; });
}

void levelDiscardIntermediates(void) {
    const std::lock_guard<std::mutex> lock(process().mutex);
    process().left.remove_all();
}

void levelHideIntermediates(int hide) {
    change_settings([&](RunSettings& settings) { settings.hide_intermediates = hide != 0; });
}

void levelSetFinalFile(LevelOpenFinal open, void* context, const char* name) {
    change_settings([&](RunSettings& settings) { set_final_file(settings, open, context, name); });
}

void levelSetCopy(LevelCopy copy, void* context) {
    change_settings([&](RunSettings& settings) { settings.copy = mover_for(copy, context); });
}

void levelEndFlatRamps(int end) {
    change_settings([&](RunSettings& settings) { settings.end_flat_ramps = end != 0; });
}

void levelLowerTarget(int lower) {
    change_settings([&](RunSettings& settings) { settings.lower_target = lower != 0; });
}

const LevelOutcome* levelOutcome(void) {
    return &OutcomeRecord::of_this_thread().outcome();
}

void levelCollectFindings(int collect) {
    change_settings([&](RunSettings& settings) { settings.collect_findings = collect != 0; });
    OutcomeRecord::of_this_thread().collect_by_process(
        collect != 0 ? OutcomeRecord::Findings::kKeep : OutcomeRecord::Findings::kDrop);
}

const LevelFindings* levelFindings(void) {
    return OutcomeRecord::of_this_thread().findings();
}

void levelSetMessages(LevelMessage messages, void* context) {
    const reporting::MessageSink sink = sink_for(messages, context);
    reporting::set_message_sink(sink);
    if (reporting::ThreadSink* const of_run = reporting::ThreadSink::current()) {
        of_run->replace(sink);
    }
}
