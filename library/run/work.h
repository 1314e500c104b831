#pragma once

#include <atomic>
#include <functional>
#include <string>

#include "leveling/facts/run_facts.h"
#include "leveling/worker/job.h"
#include "library/run/results.h"
#include "library/run/settings.h"
#include "library/run/workplace.h"
#include "library/samples/sample_memory.h"

namespace quorvane {

/** A caller's settings and its wish to cancel, for the length of one call. */
struct CallContext {
    const Settings& settings;
    const std::atomic<int>& cancelled;

    /** Reports the progress; throws CancelledCall where the caller cancels. */
    void advance(double fraction) const;

    std::function<void(double)> progress() const {
        return [this](double fraction) { advance(fraction); };
    }
};

/** What messages call frames in memory. */
constexpr const char* kAudioName = "the audio";

/** A recording that stands in a workplace, or a file of the caller's. */
struct Recording {
    std::string path;
    std::string name;  // for messages: kAudioName, or the caller's path
};

/**
 * Levels a recording into a part, an empty file that exists; `output` is its name in messages.
 * Without a part it is measured. All throw CallError and CancelledCall.
 */
Results level_recording(const CallContext& call,
                        const Workplace& place,
                        const Recording& recording,
                        const std::string& output,
                        const std::string& part);

/** Loudness and peaks alone. */
Results measure_loudness(const CallContext& call,
                         const Workplace& place,
                         const Recording& recording);

/** The same for frames that stand in no workplace. */
Results measure_loudness(const CallContext& call, SampleMemory& frames);

/** Brings a recording in the workplace to the target; writes the result, in the same form. */
Results limit_recording(const CallContext& call,
                        const Workplace& place,
                        const Recording& recording,
                        const std::string& result);

/** Calls work; what it throws becomes a CallError that names the recording and no other path. */
void with_errors_of(const Workplace& place,
                    const Recording& recording,
                    const std::function<void()>& work);

}  // namespace quorvane
