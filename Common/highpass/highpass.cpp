#include "Common/highpass/highpass.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "Common/audio/SoundFile.h"
#include "Common/files/same_file.h"
#include "Common/highpass/CommandLine.h"
#include "Common/highpass/biquad.h"
#include "Common/reporting/progress.h"
#include "Common/step/run_entry.h"
#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/units.h"

namespace highpass {

namespace {

constexpr int kBlockSamples = 8192;

/** Filters and clips one sample in place; returns its square. */
inline double filter_sample(double& sample, biquad& filter) {
    sample = std::max(std::min(BiQuad(sample, &filter), 1.0), -1.0);
    return sample * sample;
}

/** Two filters and two sums of squares for one or two channels. */
class Filter : public stream::Stage {
  public:
    Filter(const std::string& name, const biquad* filters, int channels, stream::Receiver& next)
        : Stage(next), name_(name), channels_(channels) {
        std::copy_n(filters, channels, filters_);
    }

    void take(double* samples, long long frames) override {
        biquad left = filters_[0];  // local copies stay in registers
        biquad right = filters_[1];
        double left_sum = sums_[0];
        double right_sum = sums_[1];
        if (channels_ == 1) {
            for (long long i = 0; i < frames; ++i) {
                left_sum += filter_sample(samples[i], left);
            }
        } else {
            for (long long i = 0; i < 2 * frames; i += 2) {
                left_sum += filter_sample(samples[i], left);
                right_sum += filter_sample(samples[i + 1], right);
            }
        }
        filters_[0] = left;
        filters_[1] = right;
        sums_[0] = left_sum;
        sums_[1] = right_sum;
        if (std::isnan(sums_[0] + sums_[1])) {
            throw std::runtime_error(name_ +
                                     ": the high-pass filter overflows; its cutoffs make it "
                                     "unstable, or the samples are too large");
        }
        next().take(samples, frames);
    }

    /** Of the louder channel, clipped. */
    double sum_of_squares() const { return std::max(sums_[0], sums_[1]); }

  private:
    std::string name_;
    int channels_;
    biquad filters_[2] = {};
    double sums_[2] = {0.0, 0.0};
};

bool build_filter(const HighpassArgs& args, int sample_rate_hz, biquad* filter) {
    if (BiQuad_new(kHighPass, 0.0, args.center_hz, sample_rate_hz, args.bandwidth_octaves,
                   filter) &&
        std::isfinite(filter->b0) && std::isfinite(filter->a1) && std::isfinite(filter->a2)) {
        return true;
    }
    step_errors::say<Step>(__LINE__, "highpass: no filter can be built from these cutoffs");
    return false;
}

[[noreturn]] void fail_filter_write(const WriteFailure& failure) {
    reporting::say_failure(reporting::Kind::kSystem, failure.path + ": " + failure.reason);
    throw std::runtime_error("error writing to " + failure.path);
}

/** The progress is that of blocks of 8192 samples. */
stream::Pace pace_of(const SF_INFO& info) {
    const long long block_frames = kBlockSamples / info.channels;
    const double blocks = static_cast<double>(ceildiv(info.frames, block_frames));
    return stream::Pace(progress_range::kHighpass, block_frames, [blocks](long long block) {
        return static_cast<double>(block + 1) / blocks;
    });
}

double level_db(const Filter& filter, const SoundSource& input) {
    const double sum = filter.sum_of_squares();
    if (sum == 0.0) {  // squares of samples below 1e-162 vanish: silence, or as good as that
        step_errors::say<Step>(
            __LINE__, "highpass: " + input.name() + " is silent or too faint to be measured");
        return 0.0;
    }
    return linear_to_db(std::sqrt(sum / static_cast<double>(input.info().frames)));
}

}  // namespace

double highpass_tmain(int argc, const char** argv) {
    HighpassArgs args;
    args.GetArgs(argc, argv);
    SoundFile input_file(args.sound_file_in, true);
    SF_INFO info{};
    input_file.GetInfo(&info);
    if (info.channels > 2) {
        throw ss_sf_too_many_channels_error(args.sound_file_in, info.channels);
    }
    require_other_file(args.sound_file_in, args.sound_file_out);
    const SoundFile output_file(args.sound_file_out, input_file);
    args.ConvertArgs();
    if (args.verbosity >= 1) {
        args.ShowArgs();
    }
    biquad filters[2];
    for (int channel = 0; channel < info.channels; ++channel) {
        if (!build_filter(args, info.samplerate, &filters[channel])) {
            return 0.0;
        }
    }
    SoundSource input(input_file.handle(), args.sound_file_in, info);
    SoundWriter output(output_file.handle(), args.sound_file_out, info.channels,
                       kBlockSamples / info.channels, fail_filter_write);
    Filter filter(args.sound_file_in, filters, info.channels, output);
    stream::Pace pace = pace_of(info);
    stream::pump(input, filter, pace);
    pace.show(1.0);
    return level_db(filter, input);
}

double _tmain(int argc, const char** argv) {
    return run_entry(highpass_tmain, argc, argv, 0.0);
}

}  // namespace highpass
