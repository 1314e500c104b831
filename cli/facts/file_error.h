#pragma once

#include <exception>
#include <new>
#include <stdexcept>
#include <string>

namespace cli {

/** The cause of a file whose size or time at the end is not that of the beginning. */
constexpr const char* kChangedWhileRead =
    "it was changed while it was read, so nothing was written; give the same command again once it "
    "is complete";

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

}  // namespace cli
