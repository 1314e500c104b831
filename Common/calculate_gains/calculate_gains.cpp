#include "Common/calculate_gains/calculate_gains.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <locale>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "Common/calculate_gains/CalcRMS.h"
#include "Common/calculate_gains/CommandLine.h"
#include "Common/files/cue_list.h"
#include "Common/files/same_file.h"
#include "Common/files/series.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/ss_util.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/stretches.h"
#include "Common/units.h"

/*
 * From segments to gains. The audio is read once, segment by segment, each up to the wall nearest
 * to the next cue. A segment's level is taken through a gate (CalcRMS.h), so that pauses do not
 * make a voice seem quieter than it is. The mean of the levels, in dB, is the recording's own
 * average: every segment is brought towards it, and where the recording as a whole ends up is the
 * last step's business.
 *
 * Levels travel through the levels file and not in memory: they are read back with the two decimals
 * that were written, and the gains follow from those. Around the mean a gain is the whole
 * deviation; far from it the hyperbolic tangent bends it to the limit, with no corner in between:
 *
 *     deviation' = limit * tanh(deviation / limit)     in dB
 *
 * With the usual limit of 24 dB, a deviation of 12 dB becomes 11.1 dB and one of 48 dB 23.1 dB.
 */
namespace calculate_gains {

namespace {

constexpr const char* kSource = "Common/calculate_gains/calculate_gains";
constexpr double kMostBufferFrames = 1e9;      // 8 GB for one channel
constexpr long long kMostBinsOutside = 72000;  // an hour of 50 ms

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

    /** Returns 0, or 1 after a message. */
    int execute();

  private:
    int level_segments(SeriesWriter& rms_file);
    int settle_buffer_length(const SF_INFO& info);
    int look_for_own_inputs() const;
    std::vector<double> levels_of(const CueList& cues);
    void bound_cues(CueList& cues) const;
    int measure(const CueList& cues, SeriesWriter& rms_file, Levels& levels);
    int write_gains(const CueList& cues, const Levels& levels);
    double gain_of(double level_db, double mean_db) const;

    const CCLArgs& args_;
    CProgress progress_;
    std::unique_ptr<SoundSource> input_;
    int bin_frames_ = 0;
    std::uint32_t buffer_length_ = 0;  // samples
};

int Operation::execute() {
    SF_INFO info{};
    const SoundHandle handle = open_sound_for_reading(args_.wave_file, info);
    if (!handle) {
        return log_failure(kSource, __LINE__, "Error opening " + args_.wave_file);
    }
    input_.reset(new SoundSource(handle, args_.wave_file, info));
    bin_frames_ = ms_to_frames(args_.bin_size_ms, info.samplerate);
    if (bin_frames_ < 1) {
        return log_failure(kSource, __LINE__,
                           "error: a bin of " + args_.wave_file + " is shorter than a frame");
    }
    if (settle_buffer_length(info) != 0 || look_for_own_inputs() != 0) {
        return 1;
    }
    SeriesWriter rms_file(args_.rms_file, Notation::kFixed, 5, 2);
    if (!rms_file.is_open()) {
        return log_failure(kSource, __LINE__, "error opening RMS file " + args_.rms_file);
    }
    if (args_.has_cue_list) {
        return level_segments(rms_file);
    }
    // Without cues there is nothing to level against: the levels file is made, and stays empty.
    CalcRMS_GW(*input_, info.channels * info.frames, buffer_length_, args_.noise_threshold);
    const std::string problem = rms_file.close();
    return problem.empty() ? 0 : log_failure(kSource, __LINE__, problem, reporting::Kind::kSystem);
}

/** Measures the segments between the cues and writes a gain for each bin. Returns 0 or 1. */
int Operation::level_segments(SeriesWriter& rms_file) {
    CueList cues;
    std::string problem;
    if (!read_cue_list(args_.cue_list_file, cues, &problem)) {
        return log_failure(kSource, __LINE__, "error opening cue list file " + args_.cue_list_file);
    }
    if (!problem.empty()) {
        return log_failure(kSource, __LINE__, problem, reporting::Kind::kSystem);
    }
    bound_cues(cues);
    Levels levels;
    if (measure(cues, rms_file, levels) != 0 || write_gains(cues, levels) != 0) {
        return 1;
    }
    progress_.show(1.0);
    return 0;
}

/**
 * The gate's memory in samples. One frame more than the length says: truncation must not make the
 * memory shorter than asked. A length just below 0 is truncated to 0. A longer negative one is, as
 * a count without a sign, larger than any memory, and so are the positive ones refused here.
 */
int Operation::settle_buffer_length(const SF_INFO& info) {
    const double frames = std::trunc(info.samplerate * args_.buffer_length_s) + 1.0;
    if (frames == 0.0 || std::isnan(frames)) {
        return log_failure(kSource, __LINE__, "error: the circular buffer length is out of range");
    }
    if (frames < 0.0 || frames > kMostBufferFrames) {
        fail_allocation("pBufStart", std::bad_alloc().what(), kSource, __LINE__);
    }
    buffer_length_ = static_cast<std::uint32_t>(frames) * static_cast<std::uint32_t>(info.channels);
    return 0;
}

/** Returns 1 after a message when an output is one of the inputs. */
int Operation::look_for_own_inputs() const {
    for (const std::string& output : {args_.rms_file, args_.gains_file}) {
        for (const std::string& input : {args_.wave_file, args_.cue_list_file}) {
            if (is_same_file(input, output)) {
                return log_failure(kSource, __LINE__, overwritten_input_text(output));
            }
        }
    }
    return 0;
}

/**
 * Moves cues outside the recording to at most kMostBinsOutside bins before its beginning or behind
 * its end, and reports a defect: every bin up to a cue gets a gain, and memory is limited.
 */
void Operation::bound_cues(CueList& cues) const {
    const long long frames = input_->info().frames;
    const long long margin = kMostBinsOutside * bin_frames_;
    for (long long& frame : cues.frames) {
        if (frame >= 0 && frame <= frames) {
            continue;
        }
        reporting::Defect defect;
        defect.kind = reporting::DefectKind::kOther;
        defect.text = args_.cue_list_file + ": the cue at frame " + std::to_string(frame) +
                      " lies outside " + args_.wave_file;
        reporting::note_defect(defect);
        frame = std::max(-margin, std::min(frame, frames + margin));
    }
}

/** The gated RMS of each segment, linear. */
std::vector<double> Operation::levels_of(const CueList& cues) {
    const SF_INFO& info = input_->info();
    std::vector<GatedMeter> meters;
    std::vector<stream::Stretch> stretches;
    try {
        meters.assign(cues.frames.size() + 1,
                      GatedMeter(info.channels, buffer_length_, args_.noise_threshold));
        stretches.reserve(meters.size());
    } catch (const std::bad_alloc& failure) {
        fail_allocation("pBufStart", failure.what(), kSource, __LINE__);
    }
    long long start = 0;
    for (std::size_t cue = 0; cue < meters.size(); ++cue) {
        const bool last = cue == cues.frames.size();
        const long long end = last ? info.frames : nearest_wall(cues.frames[cue], bin_frames_);
        stretches.push_back({end - start, &meters[cue]});
        start = end;
    }
    stream::pump_stretches(*input_, stretches);
    std::vector<double> levels;
    levels.reserve(meters.size());
    for (const GatedMeter& meter : meters) {
        levels.push_back(meter.rms());
    }
    return levels;
}

int Operation::measure(const CueList& cues, SeriesWriter& rms_file, Levels& levels) {
    for (const double level : levels_of(cues)) {
        double level_db = kSilence_db;
        if (level > 0.0) {
            level_db = linear_to_db(level);
            levels.sum_db += level_db;
            ++levels.count;
        }
        ++levels.segments;
        rms_file.write(level_db);
    }
    const std::string problem = rms_file.close();
    return problem.empty() ? 0 : log_failure(kSource, __LINE__, problem, reporting::Kind::kSystem);
}

int Operation::write_gains(const CueList& cues, const Levels& levels) {
    std::ifstream rms(args_.rms_file);
    std::ofstream gains;
    rms.imbue(std::locale::classic());
    gains.imbue(std::locale::classic());
    if (!rms) {
        return log_failure(kSource, __LINE__, "error opening RMS file " + args_.rms_file);
    }
    gains.open(args_.gains_file);
    if (!gains) {
        return log_failure(kSource, __LINE__, "error opening gains file " + args_.gains_file);
    }
    // The mean is of the levels in full, the deviations are of those that were rounded for the
    // file.
    const double mean_db = levels.sum_db / levels.count;
    long long start = 0;
    for (int u = 0; u < levels.count; ++u) {
        double level_db = 0.0;
        if (!(rms >> level_db)) {
            return log_failure(kSource, __LINE__, "error reading from " + args_.rms_file);
        }
        // A silent segment took a line but is not in the count: the last segments get no gains.
        const double gain = gain_of(level_db, mean_db);
        const long long end =
            u < levels.segments - 1
                ? nearest_wall(cues.frames[static_cast<std::size_t>(u)], bin_frames_)
                : input_->info().frames + 1;
        // The last segment counts a frame more than there is: where the recording ends on a wall,
        // that wall gets a gain, too, and the audio does not fade towards the zero behind the last
        // one.
        for (long long bins = ceildiv(end - start, bin_frames_); bins > 0; --bins) {
            gains << gain << "\n";
        }
        start = end;
        if (levels.count != 1) {
            progress_.show(static_cast<double>(u) / levels.count);
        }
    }
    const std::string problem = close_text(gains, args_.gains_file);
    return problem.empty() ? 0 : log_failure(kSource, __LINE__, problem, reporting::Kind::kSystem);
}

/** Brings a level to the mean, softly limited by a hyperbolic tangent. */
double Operation::gain_of(double level_db, double mean_db) const {
    double deviation_db = level_db - mean_db;
    if (args_.has_gain_limit && args_.gain_limit_db == 0.0) {
        deviation_db = 0.0;
    } else if (args_.has_gain_limit) {
        deviation_db = args_.gain_limit_db * std::tanh(deviation_db / args_.gain_limit_db);
    }
    // A segment above the mean is lowered by as much as it is above.
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
