#pragma once

#include <string>

/** What the engine's two hooks do in a command-line program. */
namespace hooks {

enum Delivery {
    kNone,       // the engine has not delivered a file
    kDelivered,  // it stands at the output path
    kFailed      // it could not be put there; the reason was written to the standard error stream
};

/** Where the engine keeps its intermediate files: absolute, ends with "/". */
void use_temporary_directory(const std::string& path);

/** The delivery refuses to replace this file. */
void protect_input(const std::string& path);

/** What became of the final file since the last use_temporary_directory. */
Delivery delivery();

}  // namespace hooks
