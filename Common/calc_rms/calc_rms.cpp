#include "Common/calc_rms/calc_rms.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <string>

#include "Common/bins/measured_bins.h"
#include "Common/calc_rms/CommandLine.h"
#include "Common/files/same_file.h"
#include "Common/files/series.h"
#include "Common/reporting/log.h"
#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"
#include "Common/units.h"

namespace calc_rms {

namespace {

constexpr const char* kSource = "Common/calc_rms/calc_rms";

/** Whole frames in a bin, as samples. The product is 32 bits wide, without sign, and wraps. */
std::uint32_t bin_samples(const CCLArgs& args, const SF_INFO& info) {
    const std::uint32_t channels = static_cast<std::uint32_t>(info.channels);
    const std::uint32_t samples = static_cast<std::uint32_t>(args.bin_size_ms) * channels *
                                  static_cast<std::uint32_t>(info.samplerate) / 1000U;
    return samples - samples % channels;
}

/*
 * The levels file feeds the segmentation, which compares levels of bins: channels are taken
 * together (unlike in the steps that look for loud passages), and every bin gets a line, the quiet
 * ones too, so that a line's number is a bin's number. The sum runs on over the ends of blocks and
 * restarts with each bin, in the order of the samples.
 */

void write_level(double rms, SeriesWriter& file) {
    const double level_db = linear_to_db(rms);
    // The logarithm of a silent bin is minus infinity, which no reader of the text takes.
    file.write(level_db < kSilence_db ? kSilence_db : level_db);
}

/** Writes the level of each bin, channels together and the last over what it holds. */
class LevelWriter : public stream::Receiver {
  public:
    LevelWriter(int channels, long long bin_samples, SeriesWriter& file)
        : channels_(channels), bin_samples_(bin_samples), file_(file) {}

    void process(double* samples, long long frames) override {
        for (long long left = frames * channels_; left > 0;) {
            const long long some = std::min(left, bin_samples_ - count_);
            double sum = sum_;  // a local copy stays in a register
            for (long long i = 0; i < some; ++i) {
                sum += samples[i] * samples[i];
            }
            sum_ = sum;
            count_ += some;
            samples += some;
            left -= some;
            if (count_ == bin_samples_) {
                close_bin();
            }
        }
    }

    void finish() override {
        if (count_ > 0) {
            close_bin();
        }
    }

  private:
    void close_bin() {
        write_level(std::sqrt(sum_ / static_cast<double>(count_)), file_);
        sum_ = 0.0;
        count_ = 0;
    }

    int channels_;
    long long bin_samples_;
    SeriesWriter& file_;
    double sum_ = 0.0;
    long long count_ = 0;
};

/** Writes the levels of bins that were measured when the input was written. */
void write_levels(const MeasuredBins& measured, SeriesWriter& file, stream::ProgressPacer pacer) {
    for (int i = 0; i < measured.grid.bins; ++i) {
        write_level(measured.bins[i].rms, file);
    }
    pacer.advance(measured.frames);
    pacer.finish();
}

/** Samples done of all, after each bin; the same fraction in frames. */
stream::ProgressPacer pacer_of(const SF_INFO& info, long long bin_frames) {
    const long long frames = info.frames;
    return stream::ProgressPacer(
        progress_range::kRms, bin_frames, [frames, bin_frames](long long bin) {
            return static_cast<double>(std::min(frames, (bin + 1) * bin_frames)) /
                   static_cast<double>(frames);
        });
}

}  // namespace

int _tmain(int argc, const char** argv) {
    CCLArgs args;
    args.GetArgs(argc, argv);  // goes on with the names that were filled in
    SF_INFO info{};
    const SoundHandle handle = open_sound_for_reading(args.input_file, info);
    if (!handle) {
        return log_failure(kSource, __LINE__, "Error opening " + args.input_file);
    }
    const std::uint32_t bin = bin_samples(args, info);
    if (bin == 0) {
        return log_failure(kSource, __LINE__,
                           "A bin of " + args.input_file + " is shorter than a frame");
    }
    if (is_same_file(args.input_file, args.output_file)) {
        return log_failure(kSource, __LINE__, overwritten_input_text(args.output_file));
    }
    // Columns of equal width, with twelve decimals: later steps' thresholds see those.
    SeriesWriter output(args.output_file, Notation::kFixed, 14, 12);
    if (!output.is_open()) {
        return log_failure(kSource, __LINE__, "Error opening " + args.output_file + " for output");
    }
    const std::uint32_t bin_frames = bin / static_cast<std::uint32_t>(info.channels);
    stream::ProgressPacer pacer = pacer_of(info, bin_frames);
    const MeasuredBins* const measured = MeasuredRecordings::of_this_thread().find(
        args.input_file, BinKind::kAllSamples, static_cast<int>(bin_frames), info);
    if (measured != nullptr) {
        write_levels(*measured, output, pacer);
    } else {
        SoundSource input(handle, args.input_file, info);
        LevelWriter levels(info.channels, bin, output);
        stream::pump(input, levels, pacer, stream::kToTheEnd,
                     {"pBinData", kSource, stream::NotFinite::kNoteAsDefect});
    }
    const std::string problem = output.close();
    return problem.empty() ? 0 : log_failure(kSource, __LINE__, problem, reporting::Kind::kSystem);
}

}  // namespace calc_rms
