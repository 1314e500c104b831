#include "Common/level.h"

#include <ctime>
#include <functional>
#include <string>

#include "Common/CommandLine.h"
#include "Common/reporting/cancel.h"
#include "Common/reporting/failure.h"
#include "Common/reporting/log.h"
#include "Common/reporting/run_state.h"
#include "Common/run/Run.h"
#include "Common/run/c_locale.h"
#include "Common/run/outcome_record.h"
#include "Common/step/failure.h"

/*
 * The engine's C entry: what a call sets up and takes down around a Run, and the ways in for
 * cancelling and asking.
 */

namespace {

// One for the process, as everything of the engine is: a run finds it where the last caller put it.
LevelMessage message_callback = nullptr;

/** Between the engine's C++ words and the C callback. */
void hand_over(void* context, const reporting::Words& words) {
    const LevelWords kind = words.is_cause                              ? kLevelWordsCause
                            : words.stream == reporting::Stream::kError ? kLevelWordsError
                                                                        : kLevelWordsOutput;
    message_callback(context, kind, words.text.c_str());
}

/** What can end before there is a Run: a cancellation that still stands, and the command line. */
int run(int argc, char** argv, LevelProgress progress, void* context) {
    OutcomeRecord& record = OutcomeRecord::instance();
    // A request that came before the run ends it, too: whoever cancels a batch need not know which
    // file is under way.
    check_cancelled();
    gProgressThunk = progress;
    gProcessorPtr = context;
    if (kShowDuration) {
        gStart = static_cast<unsigned long>(std::clock());
        ShowDuration(gStart);
    }
    CCLArgs args;
    const int parsed = args.GetArgs(argc, argv);
    record.set_input(args.input_file);
    if (parsed != 0) {
        // The help and the version end here as well, and are no refusal.
        if (reporting::first_failure().kind == reporting::Kind::kSystem) {
            record.fail(0, Intermediates());
        } else if (reporting::first_failure().kind != reporting::Kind::kNone) {
            record.refuse();
        }
        return kFailure;
    }
    return Run(args).go();
}

}  // namespace

int levelMain(int argc,
              char** argv,
              const char* /*reserved*/,
              LevelProgress progress,
              void* callbackContext) {
    const CLocale locale;  // numbers have a decimal point in all text files and options
    OutcomeRecord& record = OutcomeRecord::instance();
    record.begin_run();
    take_run_asked();  // of a run that ended in another way
    try {
        return run(argc, argv, progress, callbackContext);
    } catch (const ss_cancel_exception&) {
        if (!take_run_asked()) {
            set_cancelled(true);
        }
        record.cancel();
        return kCancelled;
    } catch (const std::exception&) {
        report_current_failure();
        record.fail(0, Intermediates());
        return kFailure;
    }
}

void levelRequestCancel(void) {
    request_cancel();
}

void levelClearCancel(void) {
    set_cancelled(false);
}

void levelAskToCancel(LevelAsksToCancel asks, void* context) {
    ask_before_going_on(asks, context);
}

void levelKeepIntermediates(int keep) {
    Run::keep_intermediates(keep != 0);
}

void levelDiscardIntermediates(void) {
    Run::discard_intermediates();
}

void levelHideIntermediates(int hide) {
    Run::hide_intermediates(hide != 0);
}

void levelSetFinalFile(LevelOpenFinal open, void* context) {
    Run::write_final_into(open == nullptr ? std::function<int()>()
                                          : [open, context] { return open(context); });
}

void levelSetCopy(LevelCopy copy, void* context) {
    Run::copy_by(copy == nullptr ? Run::Copy()
                                 : [copy, context](const std::string& from, const std::string& to) {
                                       return copy(context, from.c_str(), to.c_str());
                                   });
}

void levelEndFlatRamps(int end) {
    Run::end_flat_ramps(end != 0);
}

void levelLowerTarget(int lower) {
    Run::lower_target(lower != 0);
}

const LevelOutcome* levelOutcome(void) {
    return &OutcomeRecord::instance().outcome();
}

void levelCollectFindings(int collect) {
    OutcomeRecord::instance().collect_findings(collect != 0);
}

const LevelFindings* levelFindings(void) {
    return OutcomeRecord::instance().findings();
}

void levelSetMessages(LevelMessage messages, void* context) {
    message_callback = messages;
    reporting::set_message_sink(messages != nullptr ? hand_over : nullptr, context);
}
