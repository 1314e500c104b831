#pragma once

#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "leveling/audio/measure.h"
#include "leveling/facts/run_facts.h"
#include "leveling/findings/profiler.h"
#include "leveling/storage/staged_output.h"
#include "leveling/worker/audio_backend.h"
#include "leveling/worker/job.h"

namespace quorvane {

/** What reading the input shows; its hash where a second thread read it. */
struct InputReading {
    Loudness loudness;
    SoundProfile profile;
    std::string hash;
};

struct Work {
    const Job& job;
    FileFacts facts = {};
    std::unique_ptr<AudioBackend> backend = nullptr;
    std::vector<std::string> engine_inputs = {};
    // Of each engine input; empty: the engine handed it back.
    std::vector<std::string> leveled = {};
    std::string audio = "";  // the newest form of the leveled audio; at the end the complete file
    bool changed = true;     // false: the engine handed every input back
    std::future<InputReading> before = {};       // on its way, while the engine works
    std::future<Measurement> after = {};         // on its way, while the output is written
    std::string heard_in = "";                   // the file that `after` is of
    std::optional<Scan> heard = {};              // what it holds
    std::unique_ptr<OutputPart> part = nullptr;  // the output, before it gets its name
    std::string input_hash = "";
    std::string output_hash = "";
    std::function<void(double)> progress = nullptr;  // of the stage, 0 to 1
};

/** What a stage does that a group's files do together. */
enum class StageOf { kFile, kLevel };

struct Stage {
    void (*run)(Work&);
    bool (*wanted)(const Work&);
    double until;          // where on the file's progress bar it ends
    double until_decoded;  // the same for a file that is decoded and encoded as a whole
    StageOf of = StageOf::kFile;
};

/** The work on one file, in order. */
const std::vector<Stage>& stages();

}  // namespace quorvane
