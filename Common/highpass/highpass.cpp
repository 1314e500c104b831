#include "Common/highpass/highpass.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <string>

#include "Common/audio/SoundFile.h"
#include "Common/highpass/CommandLine.h"
#include "Common/highpass/Filter.h"
#include "Common/highpass/biquad.h"
#include "Common/reporting/progress.h"
#include "Common/step/run_entry.h"
#include "Common/stream/pump.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"
#include "Common/units.h"

/*
 * The step's entry. Its result is a level in dB and not a status: the driver lets the gate's
 * threshold follow from it. Whatever fails gives 0.0, as silence does.
 */
namespace highpass {

namespace {

// Blocks of the progress, and the pieces in which a lossy encoder gets its samples.
constexpr int kBlockSamples = 8192;

/** False, with a message, where the cutoffs give coefficients that are not numbers. */
bool build_filter(const HighpassArgs& args, int sample_rate_hz, biquad* filter) {
    if (BiQuad_new(kHighPass, 0.0, args.center_hz, sample_rate_hz, args.bandwidth_octaves,
                   filter) &&
        std::isfinite(filter->b0) && std::isfinite(filter->a1) && std::isfinite(filter->a2)) {
        return true;
    }
    reporting::note_failure(reporting::Kind::kOther, "no filter can be built from these cutoffs");
    step_errors::say<Step>(__LINE__, "highpass: no filter can be built from these cutoffs");
    return false;
}

/** What the writer calls after a short write: an error that the driver reports, not the step. */
[[noreturn]] void fail_filter_write(const WriteFailure& failure) {
    reporting::note_failure(reporting::Kind::kSystem, failure.path + ": " + failure.reason);
    throw std::runtime_error("error writing to " + failure.path);
}

/** The progress is that of blocks of 8192 samples. */
stream::ProgressPacer pacer_of(const SF_INFO& info) {
    const long long block_frames = kBlockSamples / info.channels;
    const double blocks = static_cast<double>(ceildiv(info.frames, block_frames));
    return stream::ProgressPacer(
        progress_range::kHighpass, block_frames,
        [blocks](long long block) { return static_cast<double>(block + 1) / blocks; });
}

/**
 * The RMS of the louder channel as it was written, in dB relative to full scale; 0.0 for silence,
 * after a message.
 */
double level_db(const Filter& filter, const SoundSource& input) {
    const double sum = filter.sum_of_squares();
    if (sum == 0.0) {  // squares of samples below 1e-162 vanish: silence, or as good as that
        reporting::note_failure(reporting::Kind::kOther, "it is too faint to be measured");
        step_errors::say<Step>(
            __LINE__, "highpass: " + input.name() + " is silent or too faint to be measured");
        return 0.0;
    }
    // Per frame, since the sum is one channel's.
    return linear_to_db(std::sqrt(sum / static_cast<double>(input.info().frames)));
}

}  // namespace

double highpass_tmain(int argc, const char** argv) {
    HighpassArgs args;
    args.GetArgs(argc, argv);
    SoundFile input_file(args.sound_file_in, true);
    SF_INFO info{};
    input_file.GetInfo(&info);
    step_errors::require_known_channels<Step>(args.sound_file_in, info);
    step_errors::require_other_file<Step>(args.sound_file_in, args.sound_file_out);
    // The output is made before the settings are converted: what is wrong with them leaves it
    // empty.
    const SoundFile output_file(args.sound_file_out, input_file);
    args.ConvertArgs();
    if (args.verbosity >= 1) {
        args.ShowArgs();
    }
    // Each channel has its own state; the coefficients are the same.
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
    stream::ProgressPacer pacer = pacer_of(info);
    stream::pump(input, filter, pacer);
    pacer.show(1.0);
    return level_db(filter, input);
}

double _tmain(int argc, const char** argv) {
    return run_entry(highpass_tmain, argc, argv, 0.0);
}

}  // namespace highpass
