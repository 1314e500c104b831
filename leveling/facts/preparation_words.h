#pragma once

#include <string>
#include <vector>

#include "leveling/facts/run_facts.h"

namespace quorvane {

enum class Telling {
    Notable,    // what is done to few files
    Everything  // also what is done to nearly every file
};

/**
 * What was done around the engine, each in a few plain words that follow a file's name: "raised by
 * 31.2 dB before leveling".
 */
std::vector<std::string> words_of(const Preparation& preparation, Telling telling);

}  // namespace quorvane
