#include <atomic>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "Common/level.h"
#include "Common/level/callbacks.h"
#include "Common/level/process.h"
#include "Common/result.h"
#include "Common/run/engine_call.h"
#include "Common/run/outcome_record.h"

/* Runs as objects: levelRunNew and what belongs to it. */

using level_engine::mover_for;
using level_engine::process;
using level_engine::set_final_file;
using level_engine::sink_for;

struct LevelRun {
    RunSettings settings;
    std::vector<std::string> options;
    std::shared_ptr<OutcomeRecord> record = new_record();
    std::atomic<int> cancelled{0};
    LevelAsksToCancel asks = nullptr;
    void* asks_context = nullptr;
    std::atomic<bool> busy{false};

    static std::shared_ptr<OutcomeRecord> new_record() {
        return std::make_shared<OutcomeRecord>(OutcomeRecord::Collecting::kByRun);
    }
};

namespace {

/** The host of a run object must survive a fault of the engine's own: only the run ends. */
void end_run_on_assertion(const char* condition) {
    throw std::logic_error(std::string("Assertion failed: ") + condition);
}

int show_nothing(void* /*context*/, float /*fraction*/) {
    return 0;
}

static_assert(std::atomic<int>::is_always_lock_free, "a signal handler must not meet a lock");

int is_run_cancelled(void* context) {
    const auto& run = *static_cast<LevelRun*>(context);
    const bool cancelled = run.cancelled.load(std::memory_order_relaxed) != 0;
    return cancelled || (run.asks != nullptr && run.asks(run.asks_context) != 0) ? 1 : 0;
}

/** The yes or no settings of the process; callbacks belong to one caller and are not shared. */
RunSettings settings_of_new_run() {
    const std::lock_guard<std::mutex> lock(process().mutex);
    const RunSettings& of_process = process().settings;
    RunSettings settings;
    settings.keep_intermediates = of_process.keep_intermediates;
    settings.hide_intermediates = of_process.hide_intermediates;
    settings.lower_target = of_process.lower_target;
    settings.end_flat_ramps = of_process.end_flat_ramps;
    settings.collect_findings = of_process.collect_findings;
    return settings;
}

/** Stores a text; 1 without memory. */
template <class Store>
int stored(const Store& store) {
    try {
        store();
        return 0;
    } catch (const std::bad_alloc&) {
        return 1;
    }
}

int call_engine_for(LevelRun& run, const char* input, const char* output) {
    std::vector<std::string> words = {"", "--input-file", input, "--output-file", output};
    words.insert(words.end(), run.options.begin(), run.options.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    return call_engine(static_cast<int>(words.size()), argv.data(), run.settings, run.record);
}

}  // namespace

LevelRun* levelRunNew(void) {
    try {
        auto run = std::make_unique<LevelRun>();
        run->settings = settings_of_new_run();
        run->settings.assertion_failed = end_run_on_assertion;
        levelRunSetProgress(run.get(), nullptr, nullptr);
        levelRunSetMessages(run.get(), nullptr, nullptr);
        return run.release();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void levelRunFree(LevelRun* run) {
    delete run;
}

int levelRunAddOption(LevelRun* run, const char* word) {
    return stored([&] { run->options.emplace_back(word); });
}

int levelRunSetTemporaryDirectory(LevelRun* run, const char* path) {
    return stored([&] { run->settings.temporary_directory = path; });
}

void levelRunSetProgress(LevelRun* run, LevelProgress progress, void* context) {
    run->settings.progress = progress != nullptr ? progress : show_nothing;
    run->settings.progress_context = context;
}

void levelRunSetMessages(LevelRun* run, LevelMessage messages, void* context) {
    run->settings.messages = messages != nullptr ? sink_for(messages, context)
                                                 : [](const reporting::Words& /*words*/) {};
}

void levelRunSetFinalFile(LevelRun* run, LevelOpenFinal open, void* context, const char* name) {
    set_final_file(run->settings, open, context, name);
}

void levelRunSetCopy(LevelRun* run, LevelCopy copy, void* context) {
    run->settings.copy = mover_for(copy, context);
}

void levelRunSetDelivery(LevelRun* run, LevelDeliver deliver, void* context) {
    run->settings.deliver = mover_for(deliver, context);
}

void levelRunAskToCancel(LevelRun* run, LevelAsksToCancel asks, void* context) {
    run->asks = asks;
    run->asks_context = context;
}

void levelRunSwitch(LevelRun* run, LevelSwitch which, int on) {
    switch (which) {
        case kLevelKeepIntermediates:
            run->settings.keep_intermediates = on != 0;
            break;
        case kLevelHideIntermediates:
            run->settings.hide_intermediates = on != 0;
            break;
        case kLevelLowerTarget:
            run->settings.lower_target = on != 0;
            break;
        case kLevelEndFlatRamps:
            run->settings.end_flat_ramps = on != 0;
            break;
        case kLevelCollectFindings:
            run->settings.collect_findings = on != 0;
            break;
        case kLevelUseHelperThread:
            run->settings.help =
                on != 0 ? stream::HelperThread::Help::kHelped : stream::HelperThread::Help::kAlone;
            break;
    }
}

int levelRunFile(LevelRun* run, const char* input, const char* output) {
    if (run->busy.exchange(true)) {
        return kFailure;
    }
    int result = kFailure;
    try {
        run->record = LevelRun::new_record();
        run->settings.asks_to_cancel = is_run_cancelled;
        run->settings.cancel_context = run;
        if (is_engine_called()) {
            run->record->refuse_start("another run is under way on this thread");
        } else {
            result = call_engine_for(*run, input, output);
        }
    } catch (const std::bad_alloc&) {
        run->record->refuse_start("there is not enough memory");
    } catch (...) {
        run->busy = false;
        throw;
    }
    run->busy = false;
    return result;
}

void levelRunCancel(LevelRun* run) {
    run->cancelled.store(1, std::memory_order_relaxed);
}

void levelRunClearCancel(LevelRun* run) {
    run->cancelled.store(0, std::memory_order_relaxed);
}

const LevelOutcome* levelRunOutcome(const LevelRun* run) {
    return &run->record->outcome();
}

const LevelFindings* levelRunFindings(LevelRun* run) {
    return run->record->findings();
}

void levelRunDiscardIntermediates(LevelRun* run) {
    if (run->record->left_files()) {
        run->record->left_files()->remove_all();
    }
}
