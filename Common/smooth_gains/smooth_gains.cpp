#include "Common/smooth_gains/smooth_gains.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

#include "Common/files/same_file.h"
#include "Common/files/series.h"
#include "Common/reporting/log.h"
#include "Common/step/step_options.h"

/*
 * From steps to slopes. The gains jump where one segment ends and the next begins. Over such a jump
 * the curve must never be above the gains on either side, or the louder segment would be lifted by
 * the quieter one's gain: a rise begins where the jump is and takes its time (40 bins, 2 s), a fall
 * is finished where the jump is and so begins before it (2 bins). One pass makes rises slow; the
 * same pass over the reversed series makes falls slow, and the lower of both curves keeps both
 * promises.
 */
namespace smooth_gains {

namespace {

constexpr const char* kSource = "Common/smooth_gains/smooth_gains";

// Relative height of a rise that is rounding: gains are read with six digits, and a ramp of 40
// steps gathers no more than 1e-14.
constexpr double kFlat = 1e-9;

struct Args {
    int attack_increasing = 10;  // both in values of the series
    int attack_decreasing = 2;
    std::string input_file;
    std::string output_file;
};

/** Returns 0, or 1 after a message; the help counts as one, since nothing was smoothed. */
int parse(int argc, const char** argv, Args& args) {
    StepOptions parser("smooth_gains", "produce help message");
    parser.option("attack-increasing,a", args.attack_increasing, "attack for increasing gain")
        .option("attack-decreasing,b", args.attack_decreasing, "attack for decreasing gain")
        .optional("input-file,i", args.input_file, "input file")
        .optional("output-file,o", args.output_file, "output file")
        .also_positional("input-file")
        .also_positional("output-file");
    const ParseResult result = parser.parse(argc, argv);
    if (result.status == ParseResult::kFailed) {
        return log_failure(kSource, __LINE__, result.message);
    }
    if (argc < 3 || result.status == ParseResult::kHelp || args.input_file.empty() ||
        args.output_file.empty()) {
        return log_failure(kSource, __LINE__, parser.help());
    }
    if (args.attack_increasing < 1 || args.attack_decreasing < 1) {
        return log_failure(kSource, __LINE__, "error: an attack must be at least 1");
    }
    return 0;
}

/**
 * The gains of all lines but those that are 0 or no number. A line longer than 255 characters ends
 * the reading.
 */
std::vector<double> read_gains(std::istream& file) {
    constexpr std::streamsize kLineSize = 256;
    // A full line without its end sets the stream's fail bit, which is what ends the reading.
    char line[kLineSize];
    std::vector<double> gains;
    while (file.getline(line, kLineSize)) {
        // A line that is not a number reads as 0, which is not a valid gain.
        const double gain = std::atof(line);
        if (gain != 0.0) {
            gains.push_back(gain);
        }
    }
    return gains;
}

/** Each gain with as many digits as its exact value has. */
int write_gains(const std::string& path, const std::vector<double>& gains) {
    // What gcvt with 128 digits prints, on C libraries that stop at 17 digits too.
    SeriesWriter file(path, Notation::kGeneral, 0, 128);
    if (!file.is_open()) {
        return log_failure(kSource, __LINE__, "Error opening " + path + " for output");
    }
    for (const double gain : gains) {
        file.write(gain);
    }
    const std::string problem = file.close();
    return problem.empty() ? 0 : log_failure(kSource, __LINE__, problem, reporting::Kind::kSystem);
}

int smooth_file(const Args& args, FlatRamp flat) {
    std::ifstream file(args.input_file);
    if (!file) {
        return log_failure(kSource, __LINE__, "Error opening " + args.input_file);
    }
    std::vector<double> gains = read_gains(file);
    if (file.bad()) {
        return log_failure(kSource, __LINE__, "Error: " + args.input_file + " is not good for i/o");
    }
    if (gains.empty()) {
        return log_failure(kSource, __LINE__, "error: no gains in " + args.input_file);
    }
    if (!std::all_of(gains.begin(), gains.end(), [](double g) { return std::isfinite(g); })) {
        reporting::Defect defect;
        defect.kind = reporting::DefectKind::kNotFinite;
        defect.text = "a gain in " + args.input_file + " is not a finite number";
        reporting::note_defect(defect);
    }
    require_other_file(args.input_file, args.output_file);
    // The counts of the passes are 32 bits wide: 2^32 bins of 50 ms are seven years.
    const unsigned int n = static_cast<unsigned int>(gains.size());
    std::vector<double> forward(n);
    std::vector<double> backward(n);
    if (SmoothGains1(gains.data(), forward.data(), n, args.attack_increasing, flat) != 0) {
        return log_failure(kSource, __LINE__, "Error in SmoothGains1()");
    }
    // On reversed time a fall is a rise: its ramp then ends where the drop is, and so begins
    // before.
    ReverseArray(gains.data(), n);
    SmoothGains1(gains.data(), backward.data(), n, args.attack_decreasing, flat);
    for (unsigned int i = 0; i < n; ++i) {
        forward[i] = std::min(forward[i], backward[n - 1 - i]);
    }
    return write_gains(args.output_file, forward);
}

}  // namespace

int SmoothGains1(const double* in, double* out, unsigned int count, int attack, FlatRamp flat) {
    enum { kIdle, kRamping } state = kIdle;

    const auto is_rise = [flat](double from, double to) {
        return to > from && (flat == FlatRamp::kLast || to - from > kFlat * from);
    };
    double running = in[0];
    double step = 0.0;
    int remaining = 0;
    out[0] = in[0];
    for (unsigned int i = 1; i < count; ++i) {
        switch (state) {
            // A rise sets its step once. While it lasts, a higher gain does not make it steeper; a
            // gain below the ramp ends it at once, and the next rise starts from there.
            case kIdle:
                if (is_rise(running, in[i]) && attack != 1) {
                    step = (in[i] - running) / attack;
                    running += step;
                    // The first of the attack steps has been taken.
                    remaining = attack - 1;
                    state = kRamping;
                } else {
                    running = in[i];
                }
                out[i] = running;
                break;
            case kRamping:
                running += step;
                if (running > in[i]) {
                    running = in[i];
                    state = kIdle;
                } else {
                    state = remaining > 1 ? kRamping : kIdle;
                    --remaining;
                }
                out[i] = running;
                break;
            default:
                return log_failure(kSource, __LINE__,
                                   "Should never get here.  Line " + std::to_string(__LINE__));
        }
    }
    return 0;
}

void ReverseArray(double* values, unsigned long count) {
    std::reverse(values, values + count);
}

int _tmain(int argc, const char** argv) {
    return run_smooth_gains(argc, argv, FlatRamp::kLast);
}

int run_smooth_gains(int argc, const char** argv, FlatRamp flat) {
    try {
        Args args;
        return parse(argc, argv, args) != 0 ? 1 : smooth_file(args, flat);
    } catch (const std::exception& failure) {
        return log_failure(kSource, __LINE__, std::string("error: ") + failure.what());
    } catch (...) {
        return log_failure(kSource, __LINE__, "Exception of unknown type!");
    }
}

}  // namespace smooth_gains
