#include "Common/highpass/highpass.h"

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <cmath>
#include <stdexcept>
#include <string>

#include "Common/audio/SoundFile.h"
#include "Common/audio/finite.h"
#include "Common/highpass/CommandLine.h"
#include "Common/highpass/biquad.h"
#include "Common/reporting/log.h"
#include "Common/reporting/progress.h"
#include "Common/step/run_entry.h"
#include "Common/units.h"

namespace highpass {

namespace {

constexpr int kBlockSamples = 8192;

/** Filters and clips one sample in place; returns its square. */
inline double filter_sample(double& sample, biquad& filter) {
    sample = std::max(std::min(BiQuad(sample, &filter), 1.0), -1.0);
    return sample * sample;
}

/** Two filters and two sums for one or two channels. */
struct Channels {
    biquad filters[2] = {};
    double sums[2] = {0.0, 0.0};

    /** samples: count interleaved samples, a whole number of frames. */
    void filter(double* samples, long long count, int channels) {
        biquad left = filters[0];
        biquad right = filters[1];
        if (channels == 1) {
            for (long long i = 0; i < count; ++i) {
                sums[0] += filter_sample(samples[i], left);
            }
        } else {
            for (long long i = 0; i + 1 < count; i += 2) {
                sums[0] += filter_sample(samples[i], left);
                sums[1] += filter_sample(samples[i + 1], right);
            }
        }
        filters[0] = left;
        filters[1] = right;
    }
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

void write_block(SoundFile& output, const double* samples, long long count) {
    const long long written = output.WriteDouble(samples, count);
    if (written != count) {
        throw std::runtime_error("\n" + output.path() + ": tried to write " +
                                 std::to_string(count) + ", but " + std::to_string(written) +
                                 " was written\n");
    }
}

double filter_file(SoundFile& input, SoundFile& output, const SF_INFO& info, Channels& state) {
    const int block = kBlockSamples - kBlockSamples % info.channels;
    const long long blocks = ceildiv(info.frames * info.channels, block);
    if (kShowDuration) {
        ShowDuration(gStart);
    }
    CProgress progress(progress_range::kHighpass.low, progress_range::kHighpass.high);
    FiniteGuard guard(input.path(), info);
    boost::scoped_array<double> samples;
    allocate(samples, static_cast<std::size_t>(block), "samples", "Common/highpass/highpass");

    long long blocks_done = 0;
    for (long long count = 0; (count = input.ReadDouble(samples.get(), block)) > 0;) {
        guard.check(samples.get(), count);
        count -= count % info.channels;
        state.filter(samples.get(), count, info.channels);
        if (std::isnan(state.sums[0] + state.sums[1])) {
            throw std::runtime_error(input.path() +
                                     ": the high-pass filter overflows; its cutoffs make it "
                                     "unstable, or the samples are too large");
        }
        write_block(output, samples.get(), count);
        ++blocks_done;
        progress.show(static_cast<double>(blocks_done) / static_cast<double>(blocks));
    }
    progress.show(1.0);

    const double loudest = std::max(state.sums[0], state.sums[1]);
    return loudest == 0.0 ? 0.0
                          : linear_to_db(std::sqrt(loudest / static_cast<double>(info.frames)));
}

}  // namespace

double highpass_tmain(int argc, const char** argv) {
    HighpassArgs args;
    args.GetArgs(argc, argv);
    SoundFile input(args.sound_file_in, true);
    SF_INFO info{};
    input.GetInfo(&info);
    if (info.channels > 2) {
        throw ss_sf_too_many_channels_error(args.sound_file_in, info.channels);
    }
    SoundFile output(args.sound_file_out, input);
    args.ConvertArgs();
    if (args.verbosity >= 1) {
        args.ShowArgs();
    }
    Channels state;
    for (int channel = 0; channel < info.channels; ++channel) {
        if (!build_filter(args, info.samplerate, &state.filters[channel])) {
            return 0.0;
        }
    }
    return filter_file(input, output, info, state);
}

double _tmain(int argc, const char** argv) {
    return run_entry(highpass_tmain, argc, argv, 0.0);
}

}  // namespace highpass
