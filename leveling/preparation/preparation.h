#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

/*
 * What stands around the engine when people level a file. The engine judges a recording by levels
 * in fixed places: a pause of many seconds looks to it like a quiet speaker, and a recording that
 * was made too quietly like silence. So it gets a copy that it can judge: raised to a fixed peak,
 * without the long pauses, as floats. What it makes of that is put together with the pauses again,
 * and quantised once.
 */
namespace quorvane {

/** One recording to be leveled. */
struct PreparedRun {
    std::string recording;            // a file that libsndfile reads
    std::string output;               // the file to write, where open_place gives none
    int format = 0;                   // of the output, libsndfile's number; 0: the recording's
    std::string scratch;              // a directory for what is kept meanwhile
    std::vector<std::string> tuning;  // options for the engine, "--name=value"
    // Opens the place that the output is for, an empty file, at the position where the audio is to
    // begin; -1 for none, and nothing is thrown.
    std::function<int()> open_place = nullptr;
};

/** What became of it. */
struct PreparedResult {
    bool leveled = false;   // else without output: the recording stays as it is
    bool in_place = false;  // the output is where open_place led
    std::string cause;      // why it stays
    std::optional<quorvane::Leveling> leveling;  // in the recording's time
    std::optional<quorvane::Preparation> preparation;
    std::string note;  // what the user should know of the level
};

/**
 * Levels a recording with all that belongs around the engine. progress is called with 0 to 1.
 * Throws std::runtime_error with the cause, which names no file.
 */
PreparedResult level_prepared(const PreparedRun& run, const std::function<void(double)>& progress);

}  // namespace quorvane
