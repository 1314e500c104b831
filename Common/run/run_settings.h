#pragma once

#include <functional>
#include <optional>
#include <string>

#include "Common/reporting/cancel.h"
#include "Common/reporting/failure.h"
#include "Common/reporting/run_state.h"
#include "Common/stream/helper_thread.h"

namespace level_engine {

/** What a caller sets for a run. The run works on a copy, so that it cannot change under way. */
struct RunSettings {
    bool keep_intermediates = false;
    bool hide_intermediates = false;  // no name on the disk for intermediate audio that is not kept
    bool lower_target = false;        // lower a target level that the recording has no room for
    bool end_flat_ramps = false;
    bool collect_findings = false;

    /** A descriptor for the finished audio, or -1. Empty: a temporary file. */
    std::function<int()> open_final;
    std::string final_name = "the output";  // what messages call it

    /** Copies an input to the output and returns 0, or 1. Empty: copy_file. */
    std::function<int(const std::string& from, const std::string& to)> copy;

    /** The folder for intermediate files, with "/" at both ends. "": find_temporary_directory. */
    std::string temporary_directory;

    /** Returns such a folder in memory of malloc. Empty: copyTemporaryDirectory. */
    std::function<char*()> find_temporary_directory;

    /** Puts the finished file in its place and returns 0, or 1. Empty: moveFinalFile. */
    std::function<int(const std::string& final_file, const std::string& output)> deliver;

    ProgressThunk progress = nullptr;
    void* progress_context = nullptr;

    AsksToCancel asks_to_cancel = nullptr;
    void* cancel_context = nullptr;

    /** Takes the run's words. Empty: the standard streams. */
    reporting::MessageSink messages;

    /** What a broken assumption of the segmentation calls; see segment_util.h. Null: abort. */
    void (*assertion_failed)(const char* condition) = nullptr;

    /** Whether a second thread reads ahead and writes behind. Empty: as the process has it. */
    std::optional<stream::HelperThread::Help> help;
};

}  // namespace level_engine

using level_engine::RunSettings;
