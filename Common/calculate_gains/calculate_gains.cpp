#include "Common/calculate_gains/calculate_gains.h"

#include <boost/scoped_ptr.hpp>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>

#include "Common/audio/sound_handle.h"
#include "Common/calculate_gains/CalcRMS.h"
#include "Common/calculate_gains/CommandLine.h"
#include "Common/files/cue_list.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/units.h"

namespace calculate_gains {

namespace {

constexpr const char* kSource = "Common/calculate_gains/calculate_gains";
constexpr double kSilence_db = -200.0;

/** What the measuring pass found. */
struct Levels {
    double sum_db = 0.0;
    int count = 0;     // of segments that are not silent
    int segments = 0;  // of all
};

class Operation {
  public:
    explicit Operation(const CCLArgs& args)
        : args_(args),
          progress_(progress_range::kCalculateGains.low, progress_range::kCalculateGains.high) {}

    int execute();

  private:
    int measure(const CueList& cues, Levels& levels);
    int write_gains(const CueList& cues, const Levels& levels);
    double gain_of(double level_db, double mean_db) const;

    const CCLArgs& args_;
    CProgress progress_;
    SoundHandle input_;
    SF_INFO info_{};
    int bin_frames_ = 0;
    boost::scoped_ptr<CalcRMS_GW> meter_;
    std::ofstream rms_file_;
};

int Operation::execute() {
    input_ = open_sound_for_reading(args_.wave_file, info_);
    if (!input_) {
        return log_failure(kSource, __LINE__, "Error opening " + args_.wave_file);
    }
    bin_frames_ = ms_to_frames(args_.bin_size_ms, info_.samplerate);
    const double buffer_frames = info_.samplerate * args_.buffer_length_s;
    if (bin_frames_ < 1) {
        return log_failure(kSource, __LINE__,
                           "error: a bin of " + args_.wave_file + " is shorter than a frame");
    }
    if (!(buffer_frames >= 0.0 && buffer_frames < 1e9)) {
        return log_failure(kSource, __LINE__, "error: the circular buffer length is out of range");
    }
    meter_.reset(new CalcRMS_GW(input_, args_.wave_file, info_,
                                (static_cast<std::uint32_t>(buffer_frames) + 1) *
                                    static_cast<std::uint32_t>(info_.channels),
                                args_.noise_threshold));

    rms_file_.open(args_.rms_file);
    if (!rms_file_) {
        return log_failure(kSource, __LINE__, "error opening RMS file " + args_.rms_file);
    }
    if (!args_.has_cue_list) {
        meter_->measure(info_.channels * info_.frames);
        return 0;
    }
    CueList cues;
    if (!read_cue_list(args_.cue_list_file, cues)) {
        return log_failure(kSource, __LINE__, "error opening cue list file " + args_.cue_list_file);
    }
    Levels levels;
    if (measure(cues, levels) != 0 || write_gains(cues, levels) != 0) {
        return 1;
    }
    progress_.show(1.0);
    return 0;
}

int Operation::measure(const CueList& cues, Levels& levels) {
    long long start = 0;
    for (std::size_t cue = 0; cue <= cues.frames.size(); ++cue) {
        const bool last = cue == cues.frames.size();
        const long long end = last ? info_.frames : nearest_wall(cues.frames[cue], bin_frames_);
        const double level = meter_->measure(info_.channels * (end - start));
        double level_db = kSilence_db;
        if (level > 0.0) {
            level_db = linear_to_db(level);
            levels.sum_db += level_db;
            ++levels.count;
        }
        ++levels.segments;
        char line[64];
        std::snprintf(line, sizeof line, "%5.2lf\n", level_db);
        rms_file_ << line;
        start = end;
    }
    rms_file_.close();
    return rms_file_ ? 0 : log_failure(kSource, __LINE__, "error writing to " + args_.rms_file);
}

int Operation::write_gains(const CueList& cues, const Levels& levels) {
    std::ifstream rms(args_.rms_file);
    if (!rms) {
        return log_failure(kSource, __LINE__, "error opening RMS file " + args_.rms_file);
    }
    std::ofstream gains(args_.gains_file);
    if (!gains) {
        return log_failure(kSource, __LINE__, "error opening gains file " + args_.gains_file);
    }
    const double mean_db = levels.sum_db / levels.count;
    long long start = 0;
    for (int u = 0; u < levels.count; ++u) {
        double level_db = 0.0;
        if (!(rms >> level_db)) {
            return log_failure(kSource, __LINE__, "error reading from " + args_.rms_file);
        }
        const double gain = gain_of(level_db, mean_db);
        const long long end =
            u < levels.segments - 1
                ? nearest_wall(cues.frames[static_cast<std::size_t>(u)], bin_frames_)
                : info_.frames + 1;
        const long long bins = (end - start - 1 + bin_frames_) / bin_frames_;
        for (long long bin = 0; bin < bins; ++bin) {
            gains << gain << "\n";
        }
        start = end;
        if (levels.count != 1) {
            progress_.show(static_cast<double>(u) / levels.count);
        }
    }
    gains.close();
    return gains ? 0 : log_failure(kSource, __LINE__, "error writing to " + args_.gains_file);
}

/** Brings a level to the mean, softly limited by a hyperbolic tangent. */
double Operation::gain_of(double level_db, double mean_db) const {
    double deviation_db = level_db - mean_db;
    if (args_.has_gain_limit && args_.gain_limit_db == 0.0) {
        deviation_db = 0.0;
    } else if (args_.has_gain_limit) {
        deviation_db = args_.gain_limit_db * std::tanh(deviation_db / args_.gain_limit_db);
    }
    return 1.0 / db_to_linear(deviation_db);
}

}  // namespace

int calc_rms_floor_tmain(int argc, const char** argv) {
    CCLArgs args;
    const int parsed = args.GetArgs(argc, argv);
    return parsed != 0 ? parsed : Operation(args).execute();
}

int _tmain(int argc, const char** argv) {
    try {
        return calc_rms_floor_tmain(argc, argv);
    } catch (const ss_alloc_error&) {
        return log_failure(kSource, __LINE__, "Out of memory.");
    }
}

}  // namespace calculate_gains
