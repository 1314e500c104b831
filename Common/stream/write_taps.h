#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "Common/stream/stream.h"

namespace stream {

/**
 * Receivers that observe the writing of a sound file, so that the next step does not have to read
 * the file again: they get the samples as a reader would decode them. The driver attaches a tap to
 * a path; the writer of that path detaches and feeds it if the file holds plain samples. A tap has
 * seen the whole file only if its finish was called. It must not throw.
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

    /** Removes and returns the path's tap; null when it has none. */
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
