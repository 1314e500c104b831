#pragma once

#include <exception>
#include <new>
#include <stdexcept>
#include <string>

namespace quorvane {

/** The cause of a file whose size or time at the end is not that of the beginning. */
constexpr const char* kChangedWhileRead =
    "it was changed while it was read, so nothing was written; give the same command again once it "
    "is complete";

/**
 * Why no output can be made in a folder. It is the same for all files with an output there, so that
 * a run reports it once.
 */
inline std::string folder_cause(const std::string& folder, const std::string& reason) {
    return "the folder " + folder + " cannot be written: " + reason +
           " (-d DIR writes to another folder)";
}

inline bool is_folder_cause(const std::string& cause) {
    return cause.rfind("the folder ", 0) == 0 &&
           cause.find(" cannot be written: ") != std::string::npos;
}

/** An error that is the file's, told to the user as it stands. */
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/** What to tell the user of an exception. */
inline std::string cause_of(const std::exception& error) {
    const bool is_memory = dynamic_cast<const std::bad_alloc*>(&error) != nullptr;
    return is_memory ? "there is not enough memory" : error.what();
}

}  // namespace quorvane
