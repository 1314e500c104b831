#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "leveling/archive/record.h"
#include "leveling/watch/writers.h"

namespace quorvane {

/**
 * Decides when a recording that arrives is complete. A file is taken when its writer has closed it,
 * or, where no such event arrives, when it has not changed for the settling time; never while a
 * process of this machine has it open for writing. A file is taken once for each state (size and
 * time) that it was in.
 *
 * Times are given by the caller, so that nothing here waits.
 */
class Arrivals {
  public:
    using Clock = std::chrono::steady_clock;
    using Time = Clock::time_point;

    /** What is asked of the file system. */
    struct Look {
        std::function<FileState(const std::string&)> state;
        std::function<Writer(const std::string&)> writer;
    };

    explicit Arrivals(double settle_s, Look look = {state_of, writer_of});

    /** Its writer closed it, or it was renamed into the folder. */
    void complete(const std::string& path, Time now);

    /** It appeared, and a report that it was closed is to come if a process is writing it. */
    void appeared(const std::string& path, Time now);

    /** A search came upon it. */
    void found(const std::string& path, Time now);

    /** It was removed or renamed. */
    void gone(const std::string& path);

    /**
     * Removes and returns files that are complete by now, sorted by path: of those whose time has
     * come the first `most` are looked at.
     */
    std::vector<std::string> take_due(Time now, std::size_t most);

    /** When take_due() is to be called again; none while nothing is on its way. */
    std::optional<Time> next() const;

    /** The file was worked on. It comes again if it changed since it was taken. */
    void finished(const std::string& path, Time now);

    /** Forgets that the file was taken, and waits for it to settle again. */
    void again(const std::string& path, Time now);

    /** Whether the file is another one than when it was taken. */
    bool is_changed(const std::string& path) const;

    std::size_t size() const { return waiting_.size(); }

  private:
    enum class Sign { Closed, Appeared, Found };

    struct Waiting {
        Time due;
        FileState last;
        Sign sign = Sign::Found;
    };

    void wait(const std::string& path, Waiting waiting);
    bool is_complete(const std::string& path, Waiting& waiting, Time now) const;

    double settle_s_;
    Clock::duration settle_;
    Look look_;
    std::unordered_map<std::string, Waiting> waiting_;
    std::set<std::pair<Time, std::string>> order_;  // of waiting_
    std::unordered_map<std::string, FileState> taken_;
};

}  // namespace quorvane
