#pragma once

#include <string>
#include <vector>

/** What of the engine's own command line concerns the program, too. */
struct EngineWords {
    std::vector<std::string> words;  // what is left for the engine, the program's name first
    std::string input;               // "" when it is not given
    std::string output;
    std::string options_file;
    std::string keep_intermediates;  // a directory, or ""
};

/**
 * Takes --keep-intermediates out of the words, and an empty --input-file= where the help or the
 * version is asked for, and looks at the paths, also those that an options file names. What is
 * wrong with the rest is left to the engine to say. Throws std::runtime_error for
 * --keep-intermediates without a directory.
 */
EngineWords read_engine_words(std::vector<std::string> words);
