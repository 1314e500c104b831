#include "leveling/watch/arrivals.h"

#include <algorithm>

#include "leveling/batch/settling.h"

namespace quorvane {
namespace {

/** Programs that write tags close a file and open it again at once. */
constexpr std::chrono::milliseconds kAfterClose{200};
/** A writer that has the file open is looked for again after so long at least. */
constexpr std::chrono::seconds kLeastRecheck{1};
/** Without a change, for a file that appeared, was not closed, and may still be open. */
constexpr std::chrono::seconds kUnclosed{30};

}  // namespace

Arrivals::Arrivals(double settle_s, Look look)
    : settle_s_(settle_s),
      settle_(std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(settle_s))),
      look_(std::move(look)) {}

void Arrivals::complete(const std::string& path, Time now) {
    wait(path, {now + kAfterClose, look_.state(path), Sign::Closed});
}

void Arrivals::appeared(const std::string& path, Time now) {
    wait(path, {now + settle_, look_.state(path), Sign::Appeared});
}

void Arrivals::found(const std::string& path, Time now) {
    if (waiting_.count(path) != 0) {
        return;
    }
    const FileState state = look_.state(path);
    const auto taken = taken_.find(path);
    if (!state.exists() || (taken != taken_.end() && taken->second == state)) {
        return;
    }
    // A file that no process writes needs no time to settle, unless it comes over the network:
    // file servers open it for each piece that they write.
    const bool closed = look_.writer(path) == Writer::None && !is_young(state, settle_s_);
    wait(path, {closed ? now : now + settle_, state, closed ? Sign::Closed : Sign::Found});
}

void Arrivals::gone(const std::string& path) {
    if (const auto found = waiting_.find(path); found != waiting_.end()) {
        order_.erase({found->second.due, path});
        waiting_.erase(found);
    }
    taken_.erase(path);
}

std::vector<std::string> Arrivals::take_due(Time now, std::size_t most) {
    std::vector<std::string> due;
    for (; most > 0 && !order_.empty() && order_.begin()->first <= now; --most) {
        const std::string path = order_.begin()->second;
        order_.erase(order_.begin());
        Waiting waiting = waiting_.at(path);
        waiting_.erase(path);
        const FileState state = look_.state(path);
        const auto taken = taken_.find(path);
        if (!state.exists() || (taken != taken_.end() && taken->second == state)) {
            continue;
        }
        if (is_complete(path, waiting, now)) {
            taken_[path] = waiting.last;
            due.push_back(path);
        } else {
            wait(path, waiting);
        }
    }
    std::sort(due.begin(), due.end());
    return due;
}

std::optional<Arrivals::Time> Arrivals::next() const {
    return order_.empty() ? std::nullopt : std::optional<Time>(order_.begin()->first);
}

void Arrivals::finished(const std::string& path, Time now) {
    if (is_changed(path)) {
        found(path, now);
    }
}

bool Arrivals::is_changed(const std::string& path) const {
    const auto taken = taken_.find(path);
    const FileState state = look_.state(path);
    return state.exists() && (taken == taken_.end() || state != taken->second);
}

void Arrivals::again(const std::string& path, Time now) {
    taken_.erase(path);
    found(path, now);
}

void Arrivals::wait(const std::string& path, Waiting waiting) {
    const auto [place, is_new] = waiting_.try_emplace(path, waiting);
    if (!is_new) {
        order_.erase({place->second.due, path});
        place->second = waiting;
    }
    order_.insert({waiting.due, path});
}

/** False where it has to wait; waiting then says until when. */
bool Arrivals::is_complete(const std::string& path, Waiting& waiting, Time now) const {
    const FileState state = look_.state(path);
    const bool changed = state != waiting.last;
    waiting.last = state;
    if (changed && waiting.sign != Sign::Closed) {
        waiting.due = now + settle_;
        return false;
    }
    switch (look_.writer(path)) {
        case Writer::None:
            return true;
        case Writer::Some:
            // Its close will be reported where the kernel reports such things.
            waiting.sign = Sign::Found;
            waiting.due = now + std::max<Clock::duration>(settle_, kLeastRecheck);
            return false;
        case Writer::Unknown:
            if (waiting.sign != Sign::Appeared) {
                return true;
            }
            waiting.sign = Sign::Found;
            waiting.due = now + std::max<Clock::duration>(settle_, kUnclosed);
            return false;
    }
    return true;
}

}  // namespace quorvane
