#pragma once

#include <functional>
#include <string>

/**
 * What the engine's two hooks do in a command-line program. Each thread sets them for its own calls
 * of levelMain; run objects do not use them.
 */
namespace hooks {

enum Delivery {
    kNone,       // the engine has not delivered a file
    kDelivered,  // it stands at the output path
    kFailed      // it could not be put there; delivery_failure says why
};

/** Puts the finished file at the output path, or throws std::runtime_error. */
using Deliver = std::function<void(const std::string& final_file, const std::string& output)>;

/** Where the engine keeps its intermediate files: absolute, ends with "/". */
void use_temporary_directory(const std::string& path);

/** How later runs deliver; without a function the file is moved. */
void deliver_with(Deliver deliver);

/** What became of the final file since the last use_temporary_directory. */
Delivery delivery();

/** Why it could not be delivered, "" otherwise. */
const std::string& delivery_failure();

}  // namespace hooks
