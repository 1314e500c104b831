#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

/** How the gain curve treats a rise that is nothing but rounding: see levelEndFlatRamps. */
enum class Ramps { AsTheyAre, EndAtTarget };

/** One run of the engine over one file. */
struct EngineRun {
    std::string input;
    std::string output;
    std::string scratch;              // a directory for what the engine keeps while it works
    std::vector<std::string> tuning;  // options for the engine, "--name=value"
    // Opens the place that the leveled audio is for, an empty file, when the last step comes to it;
    // -1 for none, and nothing is thrown. Without it, and for what cannot be written there at once,
    // the output is written.
    std::function<int()> open_place = nullptr;
    std::string place_name = {};  // named in the error of a failure there
    Ramps ramps = Ramps::AsTheyAre;
};

/** What a run that did not fail did. */
struct EngineResult {
    bool leveled = false;              // else the output is the input's copy
    bool in_place = false;             // it was written where open_place led, and no other file
    std::string cause;                 // of the copy
    std::optional<Leveling> leveling;  // what the steps found
    std::string note;                  // what the user should know of the level
};

/** What the engine says on its way: lines as they would stand on the standard streams. */
using EngineWords = std::function<void(const std::string&)>;

/** Takes the words of the engine's runs on this thread while it lives; the innermost one does. */
class TakeEngineWords {
  public:
    explicit TakeEngineWords(EngineWords words);
    ~TakeEngineWords();
    TakeEngineWords(const TakeEngineWords&) = delete;
    TakeEngineWords& operator=(const TakeEngineWords&) = delete;

  private:
    EngineWords words_;
    const EngineWords* before_;
};

/**
 * Runs the engine in this process; progress is called with 0 to 1. Throws std::runtime_error with
 * the first cause, which names no file, when it failed.
 */
EngineResult run_engine(const EngineRun& run, const std::function<void(double)>& progress);

}  // namespace quorvane
