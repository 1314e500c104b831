#include "Common/gate/gate.h"

#include <cmath>
#include <memory>

#include "Common/audio/scratch_sounds.h"
#include "Common/gate/CommandLine.h"
#include "Common/gate/NoiseGate.h"
#include "Common/reporting/failure.h"
#include "Common/reporting/progress.h"
#include "Common/step/run_entry.h"
#include "Common/stream/sound_source.h"
#include "Common/stream/sound_writer.h"

namespace gate {

namespace {

/*
 * The gate's entry. The output is opened before it is known whether the input is long enough to be
 * gated, so a short input's copy replaces a file that is empty by then.
 */

/** Refuses settings that leave the gate without a meter or with a gain that is not a number. */
void require_usable(const GateArgs& args) {
    const char* problem = nullptr;
    if (args.meter_samples < 1) {
        problem = "the sample rate is too low for the level meter";
    } else if (args.open_gain == args.closed_gain &&
               (args.attack_samples == 0 || args.release_samples == 0)) {
        problem = "attack and release must last a sample when both attenuations are equal";
    } else if (!std::isfinite(args.open_gain) || !std::isfinite(args.closed_gain)) {
        problem = "an attenuation is out of range";
    }
    if (problem != nullptr) {
        reporting::say_failure(reporting::Kind::kOther, std::string("gate: ") + problem);
        throw ss_command_line_error();
    }
}

[[noreturn]] void fail_gate_write(const WriteFailure& failure) {
    keep_sound_write_reason(failure.reason);
    throw ss_sf_write_error(failure.path, failure.expected, failure.written);
}

/**
 * A second reader, ahead by the anticipation, of a format whose decoder does not hear after a seek
 * what it hears when it gets there by reading: an MPEG frame leans on the bits of the frames before
 * it. The gate has always decided on what the seek gives. Null for every other format.
 */
std::unique_ptr<stream::Source> reader_ahead(const GateArgs& args, SF_INFO info) {
    if ((info.format & SF_FORMAT_TYPEMASK) != SF_FORMAT_MPEG) {
        return nullptr;
    }
    const SoundHandle handle = open_sound_for_reading(args.sound_file_in, info);
    if (!handle) {
        throw ss_sf_openinput_error(args.sound_file_in);
    }
    auto ahead = std::make_unique<SoundSource>(handle, args.sound_file_in, info);
    if (!ahead->seek(args.anticipate_samples)) {
        throw ss_sf_seek_error(args.sound_file_in);
    }
    return ahead;
}

}  // namespace

int gate_tmain(int argc, const char** argv) {
    GateArgs args;
    args.GetArgs(argc, argv);
    SF_INFO info{};
    const SoundHandle handle = open_sound_for_reading(args.sound_file_in, info);
    if (!handle) {
        throw ss_sf_openinput_error(args.sound_file_in);
    }
    step_errors::require_known_channels<Step>(args.sound_file_in, info);
    step_errors::require_other_file<Step>(args.sound_file_in, args.sound_file_out);
    SF_INFO output_info = info;
    SoundHandle output = open_sound_for_writing(args.sound_file_out, output_info);
    if (!output) {
        throw ss_sf_openoutput_error(args.sound_file_out);
    }
    // Times become samples: only the file knows its rate.
    args.ConvertArgs(info);
    require_usable(args);
    // A seek is the cheapest way to ask whether the recording reaches as far as the gate looks
    // ahead.
    SoundSource input(handle, args.sound_file_in, info);
    if (!input.seek(args.anticipate_samples)) {  // nothing lies that far ahead
        CProgress(progress_range::kGate.low, progress_range::kGate.high).show(1.0);
        output.reset();
        return copy_sound(args.sound_file_in, args.sound_file_out);
    }
    if (!input.seek(0)) {
        throw ss_sf_seek_error(args.sound_file_in);
    }
    // A lossy encoder gives other bits for other pieces: it gets the blocks that the gate works in.
    SoundWriter writer(output, args.sound_file_out, info.channels, kBlockSamples / info.channels,
                       fail_gate_write);
    const std::unique_ptr<stream::Source> ahead = reader_ahead(args, info);
    CNoiseGate noise_gate(args, input, writer, ahead.get());
    if (args.verbosity > 0) {
        args.ShowArgs();
    }
    return noise_gate.exec();
}

int _tmain(int argc, const char** argv) {
    return run_entry(gate_tmain, argc, argv, 1);
}

}  // namespace gate
