#include "Common/level.h"

#include <algorithm>
#include <boost/filesystem.hpp>
#include <boost/thread/lock_types.hpp>
#include <boost/thread/mutex.hpp>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <stdexcept>
#include <string>
#include <vector>

#include "Common/CommandLine.h"
#include "Common/apply_gains/ag_common.h"
#include "Common/audio/SoundFile.h"
#include "Common/audio/finite.h"
#include "Common/audio/is_constant.h"
#include "Common/calc_rms/calc_rms.h"
#include "Common/calculate_gains/calculate_gains.h"
#include "Common/files/copy_file.h"
#include "Common/gate/gate.h"
#include "Common/highpass/highpass.h"
#include "Common/normalize/normalize.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/reporting/run_state.h"
#include "Common/run/c_locale.h"
#include "Common/run/temp_files.h"
#include "Common/smooth_gains/smooth_gains.h"
#include "Common/ss_util.h"
#include "Common/step/failure.h"
#include "Common/wrap_segment/wrap_segment.h"

namespace fs = boost::filesystem;

LevelProgress gProgressThunk = nullptr;
void* gProcessorPtr = nullptr;
unsigned long gStart = 0;
volatile std::sig_atomic_t gCancelled = 0;

namespace {

constexpr const char* kSource = "Common/level";
constexpr double kShortestInput_s = 0.05;
constexpr double kGateBelowLevel_db = 18.0;  // the gate's threshold stands this far below
constexpr double kHighestGateThreshold_db = -40.0;
constexpr double kQuietDelta_db = -12.0;
constexpr int kBin_ms = 50;
constexpr double kBin_s = 0.05;
constexpr int kFreeSpaceFactor = 3;  // intermediate files of the input's size that exist at once

enum Result { kSuccess = 0, kFailure = 1, kCancelled = 3 };

bool gKeepIntermediates = false;
boost::mutex gTemporaryDirectoryMutex;

/** A step's argument vector, which owns its strings. */
class Argv {
  public:
    Argv(std::initializer_list<std::string> words) : words_(words) {
        for (const std::string& word : words_) {
            pointers_.push_back(word.c_str());
        }
    }

    int argc() const { return static_cast<int>(pointers_.size()); }

    const char** argv() { return pointers_.data(); }

  private:
    std::vector<std::string> words_;
    std::vector<const char*> pointers_;
};

int run_step(int (*entry)(int, const char**), Argv arguments) {
    return entry(arguments.argc(), arguments.argv());
}

int fail_step(int line, int step) {
    return log_failure(kSource, line,
                       "Step " + std::to_string(step) + " did not complete successfully");
}

int copy_input_to_output(const CCLArgs& args) {
    CProgress(progress_range::kDone.low, progress_range::kDone.high).show(1.0);
    return copy_file(args.input_file, args.output_file);
}

/** For the copies that are made without a look at every sample. */
void refuse_non_finite_samples(SoundFile& file, const SF_INFO& info) {
    constexpr int kBlockFrames = 8192;
    FiniteGuard guard(file.path(), info);
    if (!guard.needed()) {
        return;
    }
    std::vector<double> block(static_cast<std::size_t>(kBlockFrames) * info.channels);
    sf_seek(file.handle().get(), 0, SEEK_SET);
    for (long long frames = 0; (frames = file.ReadDoubleFrames(block.data(), kBlockFrames)) > 0;) {
        guard.check(block.data(), frames * info.channels);
    }
}

/** Refuses, before any work, a format that the library reads but does not write. */
void require_writable_format(const std::string& path, SF_INFO info, int bit_depth) {
    if (bit_depth != 0) {
        info.format = normalize::output_format(info.format, bit_depth);
    }
    if (info.channels <= 2 && sf_format_check(&info) == SF_FALSE) {
        throw std::runtime_error(path + ": cannot write the format " + format_name(info.format));
    }
}

/** What the names of the intermediate files begin with; input_stem serves where there is no "/". */
std::string temporary_base(const std::string& input_stem) {
    if (!fs::exists("/")) {
        return input_stem;
    }
    boost::unique_lock<boost::mutex> lock(gTemporaryDirectoryMutex);
    char* directory = copyTemporaryDirectory();
    if (directory == nullptr || *directory == '\0') {
        std::free(directory);
        throw std::runtime_error("There is no directory for temporary files.");
    }
    std::string base = std::string("/") + (directory + 1);
    std::free(directory);
    return base;
}

std::string format_db(double level_db) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1lf", level_db);
    return text;
}

/** One run over one file: the ten steps and what lies between them. */
class Run {
  public:
    explicit Run(const CCLArgs& args) : args_(args) {}

    int go();

  private:
    int condition();
    int level();
    int normalize_into(const std::string& from, const std::string& to);

    std::string audio(const char* suffix) const { return base_ + suffix + extension_; }

    std::string text(const char* suffix) const { return base_ + suffix; }

    /** Begins a step: the file it will write belongs to the run from now on. */
    std::string begin(const std::string& path) {
        check_cancelled();
        temp_files_.add(path);
        return path;
    }

    /** Deletes the files that no later step reads. */
    void done_with(std::initializer_list<std::string> paths) {
        for (const std::string& path : paths) {
            temp_files_.markForDeletion(path);
        }
        if (!gKeepIntermediates) {
            temp_files_.deleteMarked();
        }
    }

    const CCLArgs& args_;
    TempFileList temp_files_;
    SF_INFO info_{};
    std::string base_;
    std::string extension_;
    std::string conditioned_;
    bool finished_ = false;  // an early result, not an error, ended the run
};

int Run::go() {
    const fs::file_status status = fs::status(args_.input_file);
    if (status.type() == fs::file_not_found || status.type() == fs::status_error) {
        return log_failure(kSource, 169, "Could not find " + args_.input_file);
    }
    {
        SoundFile input(args_.input_file, true);
        input.GetInfo(&info_);
        check_cancelled();
        const double duration_s = static_cast<double>(info_.frames) / info_.samplerate;
        if (duration_s < kShortestInput_s || is_constant(input, info_)) {
            refuse_non_finite_samples(input, info_);
            return copy_input_to_output(args_);
        }
        if (duration_s < 0.0) {  // no real file gets here
            return normalize_into(args_.input_file, args_.output_file) == 0
                       ? kSuccess
                       : log_failure(kSource, 229, "error in normalization step");
        }
        require_writable_format(args_.input_file, info_, args_.bit_depth);
    }
    const std::size_t dot = args_.input_file.rfind('.');
    if (dot == std::string::npos) {
        return log_failure(kSource, 243, "Could not find extension for input sound file");
    }
    if (fs::space("/").available < kFreeSpaceFactor * fs::file_size(args_.input_file)) {
        throw std::runtime_error("Insufficient disk space for temporary files.");
    }
    extension_ = args_.input_file.substr(dot);
    base_ = temporary_base(args_.input_file.substr(0, dot));

    conditioned_ = args_.input_file;
    if (!kSkipConditioning) {
        const int result = condition();
        if (result != kSuccess || finished_) {
            return result;
        }
    }
    return level();
}

int Run::condition() {
    const std::string filtered = begin(audio("_01"));
    Argv highpass_words{"highpass",
                        "--highpass__low",
                        options::highpass__low,
                        "--highpass__high",
                        options::highpass__high,
                        "--highpass__verbosity",
                        options::highpass__verbosity,
                        args_.input_file,
                        filtered};
    const double level_db = highpass::_tmain(highpass_words.argc(), highpass_words.argv());
    if (level_db >= 0.0) {
        return fail_step(334, 1);
    }

    const std::string gated = begin(audio("_02"));
    const std::string threshold =
        format_db(std::min(level_db - kGateBelowLevel_db, kHighestGateThreshold_db));
    if (run_step(gate::_tmain, {"gate",
                                "--gate__attenuation_max",
                                options::gate__attenuation_max,
                                "--gate__attenuation_min",
                                options::gate__attenuation_min,
                                "--gate__threshold_attack",
                                threshold,
                                "--gate__threshold_release",
                                threshold,
                                "--gate__attack",
                                options::gate__attack,
                                "--gate__release",
                                options::gate__release,
                                "--gate__hold_time",
                                options::gate__hold_time,
                                "--gate__buffer_size",
                                options::gate__buffer_size,
                                "--gate__anticipate_attack",
                                options::gate__anticipate_attack,
                                "--gate__verbosity",
                                options::gate__verbosity,
                                filtered,
                                gated}) != 0) {
        return fail_step(396, 2);
    }
    done_with({filtered});

    const std::string without_peaks = begin(audio("_03"));
    if (run_step(reduce_loud_peak::_tmain,
                 {"reduce_loud_peak", "--level_diff", options::peak__level_diff, "--attack",
                  options::peak__attack, "--release", options::peak__release, "--noise-floor",
                  options::peak__noise_floor, "--bin-size", options::peak__bin_size, "--verbosity",
                  options::peak__verbosity, gated, without_peaks}) != 0) {
        log_msg(kSource, 446,
                "Step 3 did not complete successfully, will copy input to output and bail");
        finished_ = true;
        return copy_input_to_output(args_);
    }
    done_with({gated});

    conditioned_ = begin(audio("_04"));
    if (run_step(reduce_loud::_tmain,
                 {"reduce_loud", "--level_diff", options::level_diff, "--attack", options::attack,
                  "--release", options::release, "--noise-floor", options::noise_floor,
                  "--bin-size", options::bin_size, without_peaks, conditioned_}) != 0) {
        return fail_step(492, 4);
    }
    done_with({without_peaks});
    return kSuccess;
}

int Run::level() {
    const std::string rms = begin(text("_05.txt"));
    if (run_step(calc_rms::_tmain, {"calc_rms", conditioned_, rms}) != 0) {
        return fail_step(528, 5);
    }

    const std::string cues = begin(text("_06.clt"));
    if (wrap_segment::wrap_segment(rms, "whereisthisused", "..\\options_segment.txt", cues,
                                   kQuietDelta_db, info_.samplerate, kBin_s) != 0) {
        return fail_step(553, 6);
    }
    done_with({rms});

    const std::string segment_levels = begin(text("_07.txt"));
    const std::string gains = begin(text("_08.txt"));
    if (run_step(calculate_gains::_tmain,
                 {"calculate_gains", "--noise-threshold", options::noise_threshold, "--bin-size",
                  options::bin_size, "--gains-file", gains, "--rms-file", segment_levels,
                  "--gain-limit", options::gain_limit, conditioned_, cues}) != 0) {
        return fail_step(601, 7);
    }
    done_with({cues});

    const std::string smoothed = begin(text("_09.txt"));
    if (run_step(smooth_gains::_tmain, {"smooth_gains", "-a", "40", "-b", "2", gains, smoothed}) !=
        0) {
        return fail_step(630, 8);
    }
    done_with({segment_levels, gains});

    const std::string leveled = begin(audio("_10"));
    apply_gains::ApplyGains(kBin_ms, smoothed, conditioned_, leveled);
    if (conditioned_ == args_.input_file) {
        done_with({smoothed});
    } else {
        done_with({conditioned_, smoothed});
    }
    check_cancelled();
    if (!fs::exists(leveled)) {
        return log_failure(kSource, 684, "Could not find " + leveled);
    }

    const std::string final_file = audio("_final");
    if (normalize_into(leveled, final_file) != 0) {
        return fail_step(707, 10);
    }
    done_with({leveled});
    if (!fs::exists(final_file)) {
        return fail_step(724, 10);
    }
    moveFinalFile(final_file.c_str(), args_.output_file.c_str());
    if (kShowDuration) {
        ShowDuration(gStart);
    }
    return kSuccess;
}

int Run::normalize_into(const std::string& from, const std::string& to) {
    return run_step(normalize::_tmain, {"normalize", "-l", options::normalize__target_level, "-b",
                                        std::to_string(args_.bit_depth), from, to});
}

int run(int argc, char** argv, LevelProgress progress, void* context) {
    check_cancelled();
    gProgressThunk = progress;
    gProcessorPtr = context;
    if (kShowDuration) {
        gStart = static_cast<unsigned long>(std::clock());
        ShowDuration(gStart);
    }
    CCLArgs args;
    if (args.GetArgs(argc, argv) != 0) {
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
    const CLocale locale;
    try {
        return run(argc, argv, progress, callbackContext);
    } catch (const ss_cancel_exception&) {
        gCancelled = 1;
        return kCancelled;
    } catch (const std::exception&) {
        report_current_failure();
        return kFailure;
    }
}

void levelRequestCancel(void) {
    gCancelled = 1;
}

void levelClearCancel(void) {
    gCancelled = 0;
}

void levelKeepIntermediates(int keep) {
    gKeepIntermediates = keep != 0;
}
