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
 * a path; the writer of that path takes it along, if the file holds plain samples. A tap that
 * was told the end has seen all; one that was not is to be forgotten. It must not throw.
 */
class WriteTaps {
  public:
    /** The table of the run on this thread. */
    static WriteTaps& of_this_thread() {
        thread_local WriteTaps taps;
        return taps;
    }

    void attach(const std::string& path, std::unique_ptr<Receiver> tap) {
        taps_[path] = std::move(tap);
    }

    /** Null where nobody waits. */
    std::unique_ptr<Receiver> detach(const std::string& path) {
        const auto found = taps_.find(path);
        if (found == taps_.end()) {
            return nullptr;
        }
        std::unique_ptr<Receiver> tap = std::move(found->second);
        taps_.erase(found);
        return tap;
    }

    void clear() { taps_.clear(); }

  private:
    std::map<std::string, std::unique_ptr<Receiver>> taps_;
};

}  // namespace stream
