#pragma once

#include <string>

#include "Common/reporting/failure.h"
#include "Common/step/step_errors.h"
#include "Common/step/step_options.h"

namespace level_engine {

/**
 * Parses the command line of a step that turns one sound file into another: declares the two
 * positional sound files, then writes what is wrong, or the help that was asked for, and throws the
 * step's ss_command_line_error.
 */
template <class Step>
void parse_conditioning_options(StepOptions& options,
                                int argc,
                                const char* const* argv,
                                std::string& sound_file_in,
                                std::string& sound_file_out) {
    options.positional("sound-file-in", sound_file_in, "input sound file")
        .positional("sound-file-out", sound_file_out, "output sound file");
    ParseResult result = options.parse(argc, argv);
    if (result.status == ParseResult::kOk && (sound_file_in.empty() || sound_file_out.empty())) {
        result = {ParseResult::kFailed, "error: an input and an output sound file are needed"};
    }
    if (result.status == ParseResult::kHelp) {
        reporting::write_words(reporting::Stream::kOutput, result.message + "\n");
    } else if (result.status != ParseResult::kOk) {
        reporting::say_failure(reporting::Kind::kOther, result.message);
    }
    if (result.status != ParseResult::kOk) {
        throw step_errors::command_line_error<Step>();
    }
}

}  // namespace level_engine

using level_engine::parse_conditioning_options;
