#include "leveling/batch/settling.h"

#include <algorithm>
#include <chrono>
#include <thread>

namespace quorvane {
namespace {

using Clock = std::chrono::steady_clock;

// A recorder that writes longer than this is not waited for.
constexpr auto kLongestWait = std::chrono::minutes(1);
constexpr auto kLookEvery = std::chrono::milliseconds(100);

}  // namespace

// A time in the future, by a clock that is wrong, counts as old.
bool is_young(const FileState& file, double settle_s) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::int64_t age_ns =
        std::chrono::duration_cast<std::chrono::nanoseconds>(now).count() - file.mtime_ns;
    return file.exists() && age_ns >= 0 && static_cast<double>(age_ns) < settle_s * 1e9;
}

std::vector<bool> wait_until_settled(const std::vector<std::string>& files,
                                     double settle_s,
                                     const std::function<bool()>& stopped) {
    const auto end = Clock::now() + kLongestWait;
    std::vector<bool> young(files.size());
    for (;;) {
        for (std::size_t i = 0; i < files.size(); ++i) {
            young[i] = is_young(state_of(files[i]), settle_s);
        }
        const bool settled = std::find(young.begin(), young.end(), true) == young.end();
        if (settled || stopped() || Clock::now() >= end) {
            return young;
        }
        std::this_thread::sleep_for(kLookEvery);
    }
}

}  // namespace quorvane
