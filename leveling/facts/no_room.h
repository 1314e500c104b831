#pragma once

#include <cerrno>
#include <exception>
#include <stdexcept>
#include <string>
#include <system_error>

#include "leveling/facts/file_error.h"

namespace quorvane {

/** A disk without room: the same work may succeed once there is some. */
class NoRoomError : public FileError {
  public:
    using FileError::FileError;
};

/** Whether an errno says that a disk, or this user's share of it, is full. */
inline bool is_want_of_room(int error) {
    return error == ENOSPC || error == EDQUOT;
}

inline bool is_want_of_room(const std::exception& error) {
    const auto* const of_system = dynamic_cast<const std::system_error*>(&error);
    return dynamic_cast<const NoRoomError*>(&error) != nullptr ||
           (of_system != nullptr && is_want_of_room(of_system->code().value()));
}

/** Throws the error of a failed write: NoRoomError where errno says that the disk is full. */
[[noreturn]] inline void fail_write(int error, const std::string& reason) {
    if (is_want_of_room(error)) {
        throw NoRoomError(reason);
    }
    throw std::runtime_error(reason);
}

}  // namespace quorvane
