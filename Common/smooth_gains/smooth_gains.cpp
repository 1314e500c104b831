#include "Common/smooth_gains/smooth_gains.h"

#include <algorithm>
#include <boost/scoped_array.hpp>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <limits>
#include <string>

#include "Common/reporting/log.h"
#include "Common/ss_util.h"
#include "Common/step/step_options.h"

namespace smooth_gains {

namespace {

constexpr const char* kSource = "Common/smooth_gains/smooth_gains";

struct Args {
    int attack_increasing = 10;  // both in values of the series
    int attack_decreasing = 2;
    std::string input_file;
    std::string output_file;
};

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

/** An upper bound of the number of lines. */
std::size_t count_lines(std::istream& file) {
    constexpr std::streamsize kMostCharacters = 256;
    std::size_t lines = 0;
    while (file) {
        file.ignore(kMostCharacters, '\n');
        ++lines;
    }
    file.clear();
    file.seekg(0);
    return lines;
}

/** Appends each line's number to values, but for zeros; returns how many. */
unsigned int read_gains(std::istream& file, double* values) {
    constexpr std::streamsize kLineSize = 256;
    char line[kLineSize];
    unsigned int count = 0;
    while (file.getline(line, kLineSize)) {
        const double value = std::atof(line);
        if (value != 0.0) {
            values[count++] = value;
        }
    }
    return count;
}

int write_gains(const std::string& path, const double* values, unsigned int count) {
    std::ofstream file(path);
    if (!file) {
        return log_failure(kSource, __LINE__, "Error opening " + path + " for output");
    }
    for (unsigned int i = 0; i < count; ++i) {
        char text[512];
        // What gcvt with 128 digits prints, on C libraries that stop at 17 digits too.
        std::snprintf(text, sizeof text, "%.128g\n", values[i]);
        file << text;
    }
    file.close();
    return file ? 0 : log_failure(kSource, __LINE__, "error writing to " + path);
}

int smooth_file(const Args& args) {
    std::ifstream file(args.input_file);
    if (!file) {
        return log_failure(kSource, __LINE__, "Error opening " + args.input_file);
    }
    const std::size_t lines = count_lines(file);
    if (!file.good()) {
        return log_failure(kSource, __LINE__, "Error: " + args.input_file + " is not good for i/o");
    }
    boost::scoped_array<double> gains;
    boost::scoped_array<double> forward;
    boost::scoped_array<double> backward;
    allocate(gains, lines, "gains", kSource);
    const unsigned int n = read_gains(file, gains.get());
    if (n == 0) {
        return log_failure(kSource, __LINE__, "error: no gains in " + args.input_file);
    }
    if (!std::all_of(gains.get(), gains.get() + n, [](double g) { return std::isfinite(g); })) {
        return log_failure(kSource, __LINE__,
                           "error: a gain in " + args.input_file + " is not a finite number");
    }
    allocate(forward, n, "forward", kSource);
    allocate(backward, n, "backward", kSource);

    if (SmoothGains1(gains.get(), forward.get(), n, args.attack_increasing) != 0) {
        return log_failure(kSource, __LINE__, "Error in SmoothGains1()");
    }
    ReverseArray(gains.get(), n);
    SmoothGains1(gains.get(), backward.get(), n, args.attack_decreasing);
    for (unsigned int i = 0; i < n; ++i) {
        forward[i] = std::min(forward[i], backward[n - 1 - i]);
    }
    return write_gains(args.output_file, forward.get(), n);
}

}  // namespace

int SmoothGains1(const double* in, double* out, unsigned int count, int attack) {
    enum { kIdle, kRamping } state = kIdle;

    double running = in[0];
    double step = 0.0;
    int remaining = 0;
    out[0] = in[0];
    for (unsigned int i = 1; i < count; ++i) {
        switch (state) {
            case kIdle:
                if (in[i] > running && attack != 1) {
                    step = (in[i] - running) / attack;
                    running += step;
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
    try {
        Args args;
        return parse(argc, argv, args) != 0 ? 1 : smooth_file(args);
    } catch (const std::exception& failure) {
        return log_failure(kSource, __LINE__, std::string("error: ") + failure.what());
    } catch (...) {
        return log_failure(kSource, __LINE__, "Exception of unknown type!");
    }
}

}  // namespace smooth_gains
