#include "Common/run/engine_call.h"

#include <ctime>
#include <exception>
#include <optional>

#include "Common/CommandLine.h"
#include "Common/reporting/cancel.h"
#include "Common/reporting/failure.h"
#include "Common/reporting/log.h"
#include "Common/reporting/run_state.h"
#include "Common/run/Run.h"
#include "Common/run/c_locale.h"
#include "Common/run/outcome_record.h"
#include "Common/run/run_settings.h"
#include "Common/segment/segment_util.h"
#include "Common/step/failure.h"
#include "Common/stream/helper_thread.h"

namespace level_engine {

/*
 * What a call of the engine sets up on its thread and takes down again around a Run.
 */

namespace {

thread_local int calls = 0;

/** The state of this thread that the settings decide on, for as long as a call lasts. */
class ThreadState {
  public:
    explicit ThreadState(const RunSettings& settings, OutcomeRecord& record)
        : record_(record),
          sink_(settings.messages),
          assertions_before_(segment::set_assertion_handler(settings.assertion_failed)) {
        ++calls;
        ask_before_going_on(settings.asks_to_cancel, settings.cancel_context);
        if (settings.help) {
            help_.emplace(*settings.help);
        }
    }

    ThreadState(const ThreadState&) = delete;
    ThreadState& operator=(const ThreadState&) = delete;

    ~ThreadState() {
        record_.end_run();
        ask_before_going_on(nullptr, nullptr);
        segment::set_assertion_handler(assertions_before_);
        --calls;
    }

  private:
    const CLocale locale_;  // numbers have a decimal point in all text files and options
    OutcomeRecord& record_;
    reporting::ThreadSink sink_;
    segment::AssertionHandler assertions_before_;
    std::optional<stream::HelperThread::Use> help_;
};

/** Handles what ends a call before a Run exists: an earlier cancellation, the command line. */
int run(int argc, char** argv, const RunSettings& settings, OutcomeRecord& record) {
    // A request that came before the run ends it, too: the caller who cancels a batch need not know
    // which file is under way.
    check_cancelled();
    gProgressThunk = settings.progress;
    gProcessorPtr = settings.progress_context;
    if (kShowDuration) {
        gStart = static_cast<unsigned long>(std::clock());
        ShowDuration(gStart);
    }
    CCLArgs args;
    const int parsed = args.GetArgs(argc, argv);
    record.set_input(args.input_file);
    if (parsed != 0) {
        // --help and --version end here as well, and are not errors.
        if (reporting::first_failure().kind == reporting::Kind::kSystem) {
            record.fail(0, Intermediates());
        } else if (reporting::first_failure().kind != reporting::Kind::kNone) {
            record.refuse();
        }
        return kFailure;
    }
    return Run(args, settings, record).go();
}

}  // namespace

bool is_engine_called() {
    return calls > 0;
}

int call_engine(int argc,
                char** argv,
                const RunSettings& settings,
                const std::shared_ptr<OutcomeRecord>& record) {
    OutcomeRecord::use_on_this_thread(record);
    record->begin_run();
    record->collect_findings(settings.collect_findings ? OutcomeRecord::Findings::kKeep
                                                       : OutcomeRecord::Findings::kDrop);
    const ThreadState state(settings, *record);
    take_run_asked();  // of a run that ended in another way
    try {
        return run(argc, argv, settings, *record);
    } catch (const ss_cancel_exception&) {
        if (!take_run_asked()) {
            mark_cancelled();
        }
        record->cancel();
        return kCancelled;
    } catch (const std::exception&) {
        report_current_failure();
        record->fail(0, Intermediates());
        return kFailure;
    }
}

}  // namespace level_engine
