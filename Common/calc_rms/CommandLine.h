#pragma once

#include <string>

namespace calc_rms {

/** The settings of the step. */
class CCLArgs {
  public:
    /** Returns 0, or 1 after writing the help or what is wrong. */
    int GetArgs(int argc, const char** argv);

    int bin_size_ms = 50;  // the engine's other steps count in the same bins
    std::string options_file;
    std::string input_file;
    std::string output_file;
};

}  // namespace calc_rms
