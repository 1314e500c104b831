/*
 * quorvane-step: runs one step of the engine by itself, for people who debug it. Each gets its
 * words as they are, with its own name in front, as the driver would call it; so its parser, its
 * messages and its files are those of a whole run. What a step returns becomes the exit status, but
 * for two things: a step that went on after a defect of its input ends with 1, and help with 0.
 */

#include <algorithm>
#include <boost/lexical_cast.hpp>
#include <boost/program_options.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "Common/CommandLine.h"
#include "Common/apply_gains/ag_common.h"
#include "Common/calc_rms/CommandLine.h"
#include "Common/calc_rms/calc_rms.h"
#include "Common/calculate_gains/calculate_gains.h"
#include "Common/files/same_file.h"
#include "Common/gate/gate.h"
#include "Common/highpass/highpass.h"
#include "Common/normalize/normalize.h"
#include "Common/reduce_loud/reduce_loud.h"
#include "Common/reduce_loud_peak/reduce_loud_peak.h"
#include "Common/reporting/failure.h"
#include "Common/reporting/run_state.h"
#include "Common/segment/CommandLine.h"
#include "Common/segment/segment.h"
#include "Common/smooth_gains/smooth_gains.h"
#include "Common/step/failure.h"
#include "Common/wrap_segment/wrap_segment.h"

namespace {

constexpr int kUsage = 2;

constexpr const char* kUsageText =
    "usage: quorvane-step STEP ARGS...\n"
    "  highpass | gate | reduce_loud_peak | reduce_loud  [options] IN_AUDIO OUT_AUDIO\n"
    "  calc_rms         [options] IN_AUDIO RMS_FILE\n"
    "  segment          VALUES_FILE FIT_FILE BREAK_FILE [options]\n"
    "  wrap_segment     RMS_FILE CUE_FILE QUIET_DELTA SAMPLE_RATE BIN_SECONDS [--segment-... "
    "VALUE]\n"
    "  calculate_gains  [options] IN_AUDIO CUE_FILE GAINS_FILE RMS_FILE\n"
    "  smooth_gains     [options] GAINS_FILE SMOOTHED_FILE\n"
    "  apply_gains      BLOCK_MS SMOOTHED_FILE IN_AUDIO OUT_AUDIO\n"
    "  normalize        [options] IN_AUDIO OUT_AUDIO\n"
    "STEP --help lists a step's options.\n";

int usage(const std::string& problem) {
    std::cerr << "quorvane-step: " << problem << "\n" << kUsageText;
    return kUsage;
}

/** argv[0] is the step's name. */
using Entry = std::function<int(int argc, const char** argv)>;

/** The output is for reading and comparing: no percentages in it. */
int ignore_progress(void* /*context*/, float /*fraction*/) {
    return 0;
}

/** Prints the level that the driver would take from step 1, with all its digits. */
int run_highpass(int argc, const char** argv) {
    const double level_db = highpass::_tmain(argc, argv);
    std::printf("%.17g\n", level_db);
    // 0.0 is the step's way to say that it failed.
    return level_db < 0.0 ? 0 : 1;
}

/** The engine of step 6 alone: a series in, its fit and its breakpoints out. */
int run_segment(int argc, const char** argv) {
    if (argc < 4) {
        return usage("segment needs three file names");
    }
    // Both files are overwritten: an input with one of these names would be lost.
    require_other_file(argv[1], argv[2]);
    require_other_file(argv[1], argv[3]);
    std::ifstream values(argv[1]);
    if (!values) {
        std::cerr << "quorvane-step: cannot open " << argv[1] << std::endl;
        return 1;
    }
    std::ostringstream text;
    text << values.rdbuf();
    std::ofstream fit(argv[2]);
    std::ofstream breaks(argv[3]);
    std::vector<const char*> words{argv[0]};
    words.insert(words.end(), argv + 4, argv + argc);
    const int result =
        segment::_tmain(static_cast<int>(words.size()), words.data(), text.str(), fit, breaks);
    fit.close();
    breaks.close();
    if (result == 0 && !(fit && breaks)) {
        std::cerr << "quorvane-step: cannot write " << argv[fit ? 3 : 2] << std::endl;
        return 1;
    }
    return result;
}

/** The tuning values of the segmentation. */
boost::program_options::options_description segment_options() {
    namespace po = boost::program_options;
    int known = 0;
    const TuningOption* tuning = tuning_options(known);
    po::options_description options("wrap_segment");
    for (int k = 0; k < known; ++k) {
        const std::string name = tuning[k].names;
        if (name.compare(0, 8, "segment-") == 0) {
            options.add_options()(tuning[k].names, po::value<std::string>(tuning[k].value),
                                  tuning[k].help);
        }
    }
    return options;
}

/** Sets them. Throws boost::program_options::error. */
void set_segment_options(int count, const char* const* words) {
    namespace po = boost::program_options;
    const po::options_description options = segment_options();
    po::variables_map values;
    const std::vector<std::string> words_left(words, words + count);
    po::store(po::command_line_parser(words_left)
                  .options(options)
                  .positional(po::positional_options_description())
                  .run(),
              values);
    po::notify(values);
}

/** Step 6. The two texts that it does not read are left empty. */
int run_wrap_segment(int argc, const char** argv) {
    if (argc < 6) {
        return usage("wrap_segment needs five arguments");
    }
    set_segment_options(argc - 6, argv + 6);
    return wrap_segment::wrap_segment(
        argv[1], "", "", argv[2], boost::lexical_cast<double>(argv[3]),
        boost::lexical_cast<int>(argv[4]), boost::lexical_cast<double>(argv[5]));
}

/** Step 9 has no command line of its own. Its failures are exceptions, which main reports. */
int run_apply_gains(int argc, const char** argv) {
    if (argc != 5) {
        return usage("apply_gains needs four arguments");
    }
    apply_gains::ApplyGains(boost::lexical_cast<int>(argv[1]), argv[2], argv[3], argv[4]);
    return 0;
}

struct Step {
    Entry run;
    Entry help;  // shows the step's options; null: run does, when it is asked for help
};

/** Without the level that run_highpass prints. */
int show_highpass_help(int argc, const char** argv) {
    return static_cast<int>(highpass::_tmain(argc, argv));
}

int show_calc_rms_help(int argc, const char** argv) {
    return calc_rms::CCLArgs().GetArgs(argc, argv);
}

int show_segment_help(int argc, const char** argv) {
    return segment::CCLArgs().GetArgs(argc, argv);
}

int show_wrap_segment_help(int /*argc*/, const char** /*argv*/) {
    std::cout << "wrap_segment RMS_FILE CUE_FILE QUIET_DELTA SAMPLE_RATE BIN_SECONDS [options]\n"
              << segment_options();
    return 0;
}

int show_apply_gains_help(int /*argc*/, const char** /*argv*/) {
    std::cout << "apply_gains BLOCK_MS SMOOTHED_FILE IN_AUDIO OUT_AUDIO\n"
                 "  BLOCK_MS: length of a block in milliseconds. This step has no options.\n";
    return 0;
}

const std::map<std::string, Step> kSteps = {
    {"highpass", {run_highpass, show_highpass_help}},
    {"gate", {gate::_tmain, nullptr}},
    {"reduce_loud_peak", {reduce_loud_peak::_tmain, nullptr}},
    {"reduce_loud", {reduce_loud::_tmain, nullptr}},
    {"calc_rms", {calc_rms::_tmain, show_calc_rms_help}},
    {"segment", {run_segment, show_segment_help}},
    {"wrap_segment", {run_wrap_segment, show_wrap_segment_help}},
    {"calculate_gains", {calculate_gains::_tmain, nullptr}},
    {"smooth_gains", {smooth_gains::_tmain, nullptr}},
    {"apply_gains", {run_apply_gains, show_apply_gains_help}},
    {"normalize", {normalize::_tmain, nullptr}},
};

/** Whether the words request the step's help. "-h" may also be an option's value. */
bool asks_for_help(const std::vector<const char*>& words) {
    return std::any_of(words.begin(), words.end(),
                       [](const char* word) { return std::string(word) == "--help"; }) ||
           (words.size() == 1 && std::string(words.front()) == "-h");
}

int show_help(const Step& step, const char* name) {
    const char* words[] = {name, "--help", nullptr};
    (step.help ? step.help : step.run)(2, words);
    std::fflush(stdout);
    return 0;
}

/** All that was printed, to say nothing twice. */
std::string printed;

void print(const reporting::Words& words) {
    printed += words.text;
    (words.stream == reporting::Stream::kError ? std::cerr : std::cout) << words.text << std::flush;
}

/** Prints a cause unless the step has done so. */
void print_cause(const std::string& cause) {
    if (!cause.empty() && printed.find(cause) == std::string::npos) {
        std::cerr << "quorvane-step: " << cause << std::endl;
    }
}

/** The step's status, after the causes that it noted and did not print. */
int run_step(const Step& step, int argc, const char** argv) {
    int result = 1;
    try {
        result = step.run(argc, argv);
        std::fflush(stdout);
    } catch (const std::exception&) {
        report_current_failure();
        std::cerr << std::endl;
    }
    if (result != 0) {
        print_cause(reporting::first_failure().text);
    }
    // The step went on, but its output must not be taken for a good one.
    print_cause(reporting::first_defect().text);
    const bool has_defect = reporting::first_defect().kind != reporting::DefectKind::kNone;
    return result == 0 && has_defect ? 1 : result;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        return usage("no step is named");
    }
    const auto step = kSteps.find(argv[1]);
    if (step == kSteps.end()) {
        return usage(std::string("unknown step: ") + argv[1]);
    }
    std::vector<const char*> arguments(argv + 1, argv + argc);
    if (asks_for_help({argv + 2, argv + argc})) {
        return show_help(step->second, argv[1]);
    }
    arguments.push_back(nullptr);
    gProgressThunk = ignore_progress;
    reporting::set_message_sink(print);
    return run_step(step->second, argc - 1, arguments.data());
}
