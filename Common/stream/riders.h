#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Common/stream/stream.h"

namespace stream {

/**
 * Receivers that ride along with the writing of a sound file: they take what the next reader of the
 * file is going to get, so that he need not read it for them. Whoever runs the steps seats one for
 * a path; the writer of that path takes it along, if the file holds plain samples. A rider that
 * was told the end has seen all; one that was not is to be forgotten. It must not throw.
 */
class Riders {
  public:
    /** The table of the run on this thread. */
    static Riders& of_this_thread() {
        thread_local Riders riders;
        return riders;
    }

    void seat(const std::string& path, std::unique_ptr<Receiver> rider) {
        seated_[path] = std::move(rider);
    }

    /** Null where nobody waits. */
    std::unique_ptr<Receiver> take_along(const std::string& path) {
        const auto found = seated_.find(path);
        if (found == seated_.end()) {
            return nullptr;
        }
        std::unique_ptr<Receiver> rider = std::move(found->second);
        seated_.erase(found);
        return rider;
    }

    void clear() { seated_.clear(); }

  private:
    std::map<std::string, std::unique_ptr<Receiver>> seated_;
};

}  // namespace stream
