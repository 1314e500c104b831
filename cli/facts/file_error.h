#pragma once

#include <stdexcept>

namespace cli {

/** An error that is the file's, told to the user as it stands. */
class FileError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

}  // namespace cli
