#include "cli/engine/engine_run.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <stdexcept>

#include "Common/level.h"
#include "cli/audio/sound_file.h"
#include "cli/engine/hooks.h"
#include "cli/engine/passages.h"
#include "cli/facts/file_error.h"
#include "cli/storage/private_directory.h"

namespace cli {
namespace fs = std::filesystem;

namespace {

constexpr double kShortestSeconds = 0.05;  // the engine copies what is shorter
constexpr std::uintmax_t kFullDiskBytes = 1 << 20;

/** What the engine's progress calls work with. */
struct Watched {
    KeptFiles kept;
    const std::function<void(double)>& progress;
    bool worked = false;  // it got past the checks that end in a copy
};

int on_progress(void* context, float fraction) {
    auto& watched = *static_cast<Watched*>(context);
    watched.kept.keep();
    if (fraction < 1) {
        watched.worked = true;
    }
    watched.progress(static_cast<double>(fraction));
    return 0;
}

int level(const EngineRun& run, Watched& watched) {
    std::vector<std::string> words = {"", "--input-file", run.input, "--output-file", run.output};
    words.insert(words.end(), run.tuning.begin(), run.tuning.end());
    std::vector<char*> argv;
    for (std::string& word : words) {
        argv.push_back(&word[0]);
    }
    argv.push_back(nullptr);
    return levelMain(static_cast<int>(words.size()), argv.data(), "", &on_progress, &watched);
}

std::string copy_cause(const EngineRun& run, bool engine_worked) {
    SndfileHandle file = open_to_read(run.input);
    if (static_cast<double>(run.frames) < kShortestSeconds * file.samplerate()) {
        return "shorter than 0.05 s";
    }
    if (engine_worked) {
        return "";
    }
    std::vector<double> frame(static_cast<std::size_t>(file.channels()));
    file.readf(frame.data(), 1);
    const bool silent = std::all_of(frame.begin(), frame.end(), [](double x) { return x == 0; });
    return silent ? "silent" : "every sample is the same";
}

}  // namespace

EngineResult run_engine(const EngineRun& run, const std::function<void(double)>& progress) {
    const PrivateDirectory intermediates(run.scratch + "/engine");
    hooks::use_temporary_directory(intermediates.path());
    Watched watched{KeptFiles(intermediates.path(), run.scratch + "/kept"), progress};
    const int status = level(run, watched);
    if (status != 0 && fs::space(run.scratch).available < kFullDiskBytes) {
        throw std::runtime_error(fmt::format("the disk with the temporary files, {}, is full",
                                    fs::path(run.scratch).parent_path().parent_path().string()));
    }
    if (status != 0 || hooks::delivery() == hooks::kFailed) {
        throw std::runtime_error("");
    }
    EngineResult result;
    result.leveled = hooks::delivery() == hooks::kDelivered;
    if (result.leveled) {
        result.leveling = watched.kept.read(run.frames);
    } else {
        result.cause = copy_cause(run, watched.worked);
    }
    return result;
}

}  // namespace cli
