#include "Common/CommandLine.h"

#include <boost/program_options.hpp>
#include <exception>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>

#include "Common/reporting/failure.h"
#include "Common/ss_util.h"
#include "Common/step/option_errors.h"
#include "Common/version.h"

namespace po = boost::program_options;

/*
 * The engine's own command line. Its values stay text: each step has a parser of its own, which
 * turns text into numbers and says what is wrong with it, in the step's words. So a bad value is
 * refused by the step that it is for, when that step's turn comes.
 */

// The values at the start of each thread. What the option table below does not name never changes:
// those values are constants that travel as text, like all the others, so that the steps see no
// difference.
namespace options {
thread_local std::string highpass__low = "25.0";
thread_local std::string highpass__high = "100.0";
thread_local std::string highpass__verbosity = "0";

thread_local std::string gate__attenuation_max = "-12.0";
thread_local std::string gate__attenuation_min = "0.0";
thread_local std::string gate__threshold_attack = "-44.0";
thread_local std::string gate__threshold_release = "-44.0";
thread_local std::string gate__attack = "250";
thread_local std::string gate__release = "750";
thread_local std::string gate__hold_time = "250";
thread_local std::string gate__buffer_size = "5";
thread_local std::string gate__anticipate_attack = "250";
thread_local std::string gate__verbosity = "0";

thread_local std::string peak__level_diff = "15.0";
thread_local std::string peak__attack = "0";
thread_local std::string peak__release = "0";
thread_local std::string peak__noise_floor = "-44.0";
thread_local std::string peak__bin_size = "50";
thread_local std::string peak__verbosity = "0";

thread_local std::string level_diff = "3.0";
thread_local std::string attack = "0";
thread_local std::string release = "150";
thread_local std::string noise_floor = "-44.0";
thread_local std::string bin_size = "50";

thread_local std::string noise_threshold = "0.006";
thread_local std::string gain_limit = "24.0";
thread_local std::string gains_file;
thread_local std::string rms_file;

thread_local std::string tolerance = "3.5";
thread_local std::string min_segment_length = "20";
thread_local std::string max_breakpoints = "30";
thread_local std::string chunk_size = "2400";
thread_local std::string cost_function = "SSD0";

thread_local std::string normalize__target_level = "-18.0";
}  // namespace options

namespace {

constexpr unsigned kLineLength = 80;         // of the help, in characters
constexpr unsigned kDescriptionColumn = 40;  // where its explanations begin at the latest

constexpr const char* kUnknownFailure =
    "Exception of unknown type occured while parsing command line";

/** Prints an error of the command line and stores it as the run's first cause. */
void say(const std::string& problem) {
    reporting::say_failure(reporting::Kind::kOther, problem);
}

/** Writes requested output (help, version), which is not a failure. */
void show(reporting::Stream stream, const std::string& text) {
    reporting::write_words(stream, text + "\n");
}

std::string text_of(const po::options_description& options) {
    std::ostringstream text;
    text << options;
    return text.str();
}

/** The options as the help shows them; values go to args and to the globals. */
po::options_description describe(CCLArgs& args) {
    po::options_description tuning("level", kLineLength, kDescriptionColumn);
    tuning.add_options()("help,h", "show this help message");
    int count = 0;
    const TuningOption* const table = tuning_options(count);
    for (const TuningOption* option = table; option != table + count; ++option) {
        tuning.add_options()(
            option->names,
            po::value<std::string>(option->value)->default_value(option->default_text),
            option->help);
    }
    tuning.add_options()("options-file,o", po::value<std::string>(&args.options_file),
                         "options file");
    tuning.add_options()("bit-depth,b", po::value<int>(&args.bit_depth)->default_value(0),
                         "bit depth of output");
    tuning.add_options()("version", "display version number");

    po::options_description required("Required options", kLineLength, kDescriptionColumn);
    required.add_options()("input-file", po::value<std::string>(&args.input_file),
                           "input sound file");
    required.add_options()("output-file", po::value<std::string>(&args.output_file),
                           "output sound file");

    po::options_description allowed("Allowed options", kLineLength, kDescriptionColumn);
    allowed.add(tuning).add(required);
    return allowed;
}

/** Stores the command line, then the options file; the first value wins. False: error printed. */
bool store(int argc,
           char** argv,
           const po::options_description& allowed,
           po::variables_map& values) {
    // Without a place for them, words that belong to no option are refused.
    po::store(po::command_line_parser(argc, argv)
                  .options(allowed)
                  .positional(po::positional_options_description())
                  .run(),
              values);
    if (values.count("options-file") != 0) {
        const std::string path = values["options-file"].as<std::string>();
        std::ifstream file;
        if (!open_options_file(path, file)) {
            say("error opening " + path);
            return false;
        }
        po::store(po::parse_config_file(file, allowed), values);
    }
    return true;
}

/**
 * Throws what the library throws; returns GetArgs's result. Help and version are looked for after
 * the options file was read, whose errors are therefore reported first.
 */
int parse(CCLArgs& args, int argc, char** argv) {
    if (argc < 2) {
        throw ss_empty_command_line_error();
    }
    // The description points at args and the globals, but nothing is written there before notify.
    const po::options_description allowed = describe(args);
    po::variables_map values;
    if (!store(argc, argv, allowed, values)) {
        return 1;
    }
    if (values.count("version") != 0) {
        show(reporting::Stream::kOutput, kEngineVersion);
        return 1;
    }
    if (values.count("help") != 0) {
        show(reporting::Stream::kOutput, text_of(allowed));
        return 1;
    }
    // Not the library's "required": its error would come before the help and name one option only.
    if (values.count("input-file") == 0 || values.count("output-file") == 0) {
        reporting::note_failure(reporting::Kind::kOther, "an input and an output file are needed");
        show(reporting::Stream::kError, text_of(allowed));
        return 1;
    }
    po::notify(values);  // only now do the globals change
    if (!is_known_bit_depth(args.bit_depth)) {
        say("Unknown bit depth: " + std::to_string(args.bit_depth));
        return 1;
    }
    return 0;
}

}  // namespace

// For programs that offer the engine's options as their own, too. The order is that of the help.
// The defaults stand again beside the globals because the option library puts them back with every
// command line: a value does not outlive the run it was given for.
const TuningOption* tuning_options(int& count) {
    thread_local const TuningOption table[] = {
        {"segment-tolerance", &options::tolerance, "3.5", "threshold of fit (0=no threshold)"},
        {"segment-min-segment-length", &options::min_segment_length, "20",
         "minimum segment length"},
        {"segment-max-breakpoints", &options::max_breakpoints, "30",
         "maximum number of breakpoints (0=no max)"},
        {"segment-chunk-size", &options::chunk_size, "2400",
         "chunk size for processing in pieces (0=no chunking)"},
        {"segment-cost-function", &options::cost_function, "SSD0", "cost function (SSD0, MSD0)"},
        {"reduce-loud-level-diff", &options::level_diff, "3.0", "maximum level above mean (dB)"},
        {"reduce-loud-attack", &options::attack, "0", "attack (ms)"},
        {"reduce-loud-release", &options::release, "150", "release (ms)"},
        {"reduce-loud-noise-floor", &options::noise_floor, "-44.0", "noise floor (dB)"},
        {"calc-rms-floor-noise_threshold", &options::noise_threshold, "0.006",
         "noise threshold (linear)"},
        {"calc-rms-floor-gains_file", &options::gains_file, "gains_raw.txt", "gains file (out)"},
        {"calc-rms-floor-rms_file", &options::rms_file, "rms.txt", "RMS file (out)"},
        {"calc-rms-floor-gain_limit", &options::gain_limit, "24.0",
         "limit maximum gain to this value (dB)"},
        {"bin-size,s", &options::bin_size, "50", "bin size (ms)"},
    };
    count = static_cast<int>(std::size(table));
    return table;
}

bool is_known_bit_depth(int bit_depth) {
    return bit_depth == 0 || bit_depth == 8 || bit_depth == 16 || bit_depth == 24 ||
           bit_depth == 32;
}

int CCLArgs::GetArgs(int argc, char** argv) {
    try {
        return parse(*this, argc, argv);
    } catch (const ss_empty_command_line_error&) {
        say("error: no arguments; try --help");
    } catch (const std::bad_alloc&) {
        // The command line is correct: the stored cause differs from the text that is printed.
        reporting::note_failure(reporting::Kind::kSystem, "there is not enough memory");
        say(kUnknownFailure);
    } catch (std::exception& failure) {
        say("error: " + text_of_option_error(failure));
    } catch (...) {
        say(kUnknownFailure);
    }
    return 1;
}
