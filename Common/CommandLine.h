#pragma once

#include <string>

/**
 * Every tuning value of the engine, as the text that the steps' command lines take. Each thread has
 * its own values: those of the run on it.
 */
namespace options {
// Step 1, high-pass.
extern thread_local std::string highpass__low;        // Hz
extern thread_local std::string highpass__high;       // Hz
extern thread_local std::string highpass__verbosity;  // level

// Step 2, noise gate.
extern thread_local std::string gate__attenuation_max;  // dB
extern thread_local std::string gate__attenuation_min;  // dB
extern thread_local std::string
    gate__threshold_attack;  // dB; the driver computes the one that is used
extern thread_local std::string gate__threshold_release;  // dB; likewise
extern thread_local std::string gate__attack;             // ms
extern thread_local std::string gate__release;            // ms
extern thread_local std::string gate__hold_time;          // ms
extern thread_local std::string gate__buffer_size;        // ms
extern thread_local std::string gate__anticipate_attack;  // ms
extern thread_local std::string gate__verbosity;          // level

// Step 3, loud peaks.
extern thread_local std::string peak__level_diff;   // dB
extern thread_local std::string peak__attack;       // ms
extern thread_local std::string peak__release;      // ms
extern thread_local std::string peak__noise_floor;  // dB
extern thread_local std::string peak__bin_size;     // ms
extern thread_local std::string peak__verbosity;    // level

// Step 4, loud passages; the bin size is step 7's too.
extern thread_local std::string level_diff;   // dB
extern thread_local std::string attack;       // ms
extern thread_local std::string release;      // ms
extern thread_local std::string noise_floor;  // dB
extern thread_local std::string bin_size;     // ms

// Step 7, gains.
extern thread_local std::string noise_threshold;  // linear
extern thread_local std::string gain_limit;       // dB
extern thread_local std::string gains_file;       // not used: the driver names the file
extern thread_local std::string rms_file;         // likewise

// Step 6, segmentation.
extern thread_local std::string tolerance;           // dB
extern thread_local std::string min_segment_length;  // bins
extern thread_local std::string max_breakpoints;     // per chunk
extern thread_local std::string chunk_size;          // bins
extern thread_local std::string cost_function;       // SSD0 or MSD0

// Step 10, normalisation.
extern thread_local std::string normalize__target_level;  // dB
}  // namespace options

/** The engine's own command line. */
class CCLArgs {
  public:
    /**
     * Parses the command line and its options file, and fills the options globals. Returns 0 when
     * the run may go on, else 1: help or version was shown, or an error written.
     */
    int GetArgs(int argc, char** argv);

    int bit_depth = 0;  // of the output: 0 keeps the input's encoding, else 8, 16, 24 or 32
    std::string input_file;
    std::string output_file;
    std::string options_file;
};

/** One tuning option of the engine's command line whose value passes to the steps as text. */
struct TuningOption {
    const char* names;  // long name, and short name after a comma
    std::string* value;
    const char* default_text;
    const char* help;
};

/**
 * All of them, in the order in which the help shows them; count receives how many. The values are
 * those of this thread.
 */
const TuningOption* tuning_options(int& count);

/** Whether a bit depth is one that the engine writes. */
bool is_known_bit_depth(int bit_depth);
