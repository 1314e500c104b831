#pragma once

#include <string>

/** Every tuning value of the engine, as the text that the steps' command lines take. */
namespace options {
// Step 1, high-pass.
extern std::string highpass__low;        // Hz
extern std::string highpass__high;       // Hz
extern std::string highpass__verbosity;  // level

// Step 2, noise gate.
extern std::string gate__attenuation_max;    // dB
extern std::string gate__attenuation_min;    // dB
extern std::string gate__threshold_attack;   // dB; the driver computes the one that is used
extern std::string gate__threshold_release;  // dB; likewise
extern std::string gate__attack;             // ms
extern std::string gate__release;            // ms
extern std::string gate__hold_time;          // ms
extern std::string gate__buffer_size;        // ms
extern std::string gate__anticipate_attack;  // ms
extern std::string gate__verbosity;          // level

// Step 3, loud peaks.
extern std::string peak__level_diff;   // dB
extern std::string peak__attack;       // ms
extern std::string peak__release;      // ms
extern std::string peak__noise_floor;  // dB
extern std::string peak__bin_size;     // ms
extern std::string peak__verbosity;    // level

// Step 4, loud passages; the bin size is step 7's too.
extern std::string level_diff;   // dB
extern std::string attack;       // ms
extern std::string release;      // ms
extern std::string noise_floor;  // dB
extern std::string bin_size;     // ms

// Step 7, gains.
extern std::string noise_threshold;  // linear
extern std::string gain_limit;       // dB
extern std::string gains_file;       // not used: the driver names the file
extern std::string rms_file;         // likewise

// Step 6, segmentation.
extern std::string tolerance;           // dB
extern std::string min_segment_length;  // bins
extern std::string max_breakpoints;     // per chunk
extern std::string chunk_size;          // bins
extern std::string cost_function;       // SSD0 or MSD0

// Step 10, normalisation.
extern std::string normalize__target_level;  // dB
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

/** All of them, in the order in which the help shows them; count receives how many. */
const TuningOption* tuning_options(int& count);

/** Whether a bit depth is one that the engine writes. */
bool is_known_bit_depth(int bit_depth);
