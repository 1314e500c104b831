#pragma once

#include <atomic>
#include <functional>
#include <string>
#include <vector>

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

/** A file of a group that is leveled together, as level_recording() takes a single one. */
struct GroupFile {
    const Workplace* place;  // where frames in memory stand; else the group's
    Recording recording;     // of a mix: the first track, under the mix's name
    std::string output;
    std::string part;
    bool is_mix = false;
};

/**
 * Levels the tracks of a conversation into their parts, and their sum into that of the mix, the
 * last file. The results are in the order of the files.
 */
std::vector<Results> level_group(const CallContext& call,
                                 const Workplace& place,
                                 const std::vector<GroupFile>& files);

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

/** Calls work; the sentence of its CallError begins with the track, whose index counts from 0. */
void with_errors_of_track(std::size_t index, std::size_t count, const std::function<void()>& work);

/** Calls work; what it throws becomes a CallError that names the recording and no other path. */
void with_errors_of(const Workplace& place,
                    const Recording& recording,
                    const std::function<void()>& work);

}  // namespace quorvane
