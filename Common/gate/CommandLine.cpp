#include "Common/gate/CommandLine.h"

#include "Common/gate/gate.h"
#include "Common/step/conditioning_options.h"
#include "Common/units.h"

namespace gate {

void GateArgs::GetArgs(int argc, const char** argv) {
    if (argc < 2) {
        throw ss_empty_command_line_error();
    }
    StepOptions parser("gate", options_file);
    // Both thresholds have the letter t, which alone is then ambiguous: old command lines that give
    // it fail in the same way as ever.
    parser.option("gate__attenuation_max,x", attenuation_max_db, "max attenuation (dB)")
        .option("gate__attenuation_min,n", attenuation_min_db, "min attenuation (dB)")
        .option("gate__threshold_attack,t", threshold_attack_db, "attack threshold (dB)")
        .option("gate__threshold_release,t", threshold_release_db, "release threshold (dB)")
        .option("gate__attack,a", attack_ms, "attack (ms)")
        .option("gate__release,r", release_ms, "release (ms)")
        .option("gate__hold_time,d", hold_ms, "hold (ms)")
        .option("gate__buffer_size,b", meter_samples, "buffer size for level meter (ms)")
        .option("gate__anticipate_attack,k", anticipate_ms, "anticipate attack (ms)")
        .option("gate__verbosity,v", verbosity, "verbosity level");
    parse_conditioning_options<Step>(parser, argc, argv, sound_file_in, sound_file_out);
}

/** Times are truncated to frames, in 32 bits. */
void GateArgs::ConvertArgs(const SF_INFO& info) {
    closed_gain = db_to_linear(attenuation_max_db);
    open_gain = db_to_linear(attenuation_min_db);
    attack_samples = ms_to_frames(attack_ms, info.samplerate);
    release_samples = ms_to_frames(release_ms, info.samplerate);
    hold_samples = ms_to_frames(hold_ms, info.samplerate);
    anticipate_samples = ms_to_frames(anticipate_ms, info.samplerate);
    meter_samples = ms_to_frames(meter_ms, info.samplerate);

    // The meters hold sums of squares and not their mean: the thresholds are scaled once instead of
    // every sum being divided.
    const double attack_linear = db_to_linear(threshold_attack_db);
    const double release_linear = db_to_linear(threshold_release_db);
    attack_energy = attack_linear * attack_linear * meter_samples;
    release_energy = release_linear * release_linear * meter_samples;
}

}  // namespace gate
