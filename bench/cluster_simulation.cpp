// A job array on paper: recordings of an archive, cut by the real planner, on machines that fail.
//
// usage: cluster_simulation [HOURS [CORES [SHARDS [FAILURES_PER_CORE_AND_DAY]]]]
//
// Lengths of recordings are log-normal around 30 minutes, with a seed. A failure ends a task after
// an exponentially distributed time of work; the task is queued again after a delay and goes on
// with the file that it was at, since what is done is recorded. Beside it stands the same cluster
// whose tasks restart from their first file, as an array without records would.

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <queue>
#include <random>
#include <utility>
#include <vector>

#include "leveling/archive/shards.h"

namespace {

/** Measured: see docs/scale.md. */
constexpr double kCpuSecondsPerHour = 8.5;
constexpr double kBytesPerHour = 635e6;
constexpr double kSecondsPerFile = 0.011;
constexpr double kStartSeconds = 5;      // of a task: scheduler, plan, check of what is done
constexpr double kRequeueSeconds = 180;  // until the scheduler begins a lost task again

struct Cluster {
    std::size_t cores;
    double failures_per_second;  // of each busy core
};

enum class AfterFailure { GoOn, Restart };

struct Outcome {
    double seconds = 0;  // until the last task ended
    double lost_s = 0;   // work that was done twice
    std::size_t failures = 0;
};

/** Runs one try of a task from its first undone file; returns its length and how far it came. */
class Try {
  public:
    Try(const std::vector<double>& files, std::size_t from, double fails_after) {
        seconds = kStartSeconds;
        for (next = from; next < files.size(); ++next) {
            if (seconds + files[next] > fails_after) {
                lost_s = fails_after - seconds;
                seconds = fails_after;
                failed = true;
                return;
            }
            seconds += files[next];
        }
    }

    double seconds = 0;
    double lost_s = 0;
    std::size_t next = 0;  // the first file that is not done
    bool failed = false;
};

Outcome run(const std::vector<std::vector<double>>& shards,
            const Cluster& cluster,
            AfterFailure after) {
    std::mt19937_64 random(7);
    std::exponential_distribution<double> until_failure(cluster.failures_per_second);
    std::vector<std::size_t> done(shards.size());
    using At = std::pair<double, std::size_t>;  // time, shard
    std::priority_queue<At, std::vector<At>, std::greater<>> waiting;
    std::priority_queue<double, std::vector<double>, std::greater<>> free;
    for (std::size_t i = 0; i < shards.size(); ++i) {
        waiting.push({0, i});
    }
    for (std::size_t i = 0; i < cluster.cores; ++i) {
        free.push(0);
    }
    Outcome outcome;
    while (!waiting.empty()) {
        const auto [ready, shard] = waiting.top();
        waiting.pop();
        const double begin = std::max(ready, free.top());
        free.pop();
        const Try attempt(shards[shard], done[shard], until_failure(random));
        const double end = begin + attempt.seconds;
        free.push(end);
        outcome.seconds = std::max(outcome.seconds, end);
        if (!attempt.failed) {
            continue;
        }
        ++outcome.failures;
        const bool goes_on = after == AfterFailure::GoOn;
        outcome.lost_s += goes_on ? attempt.lost_s : attempt.seconds;
        done[shard] = goes_on ? attempt.next : 0;
        // A task that is longer than the time between failures never ends.
        if (outcome.failures > 100 * shards.size()) {
            outcome.seconds = 0;
            return outcome;
        }
        waiting.push({end + kRequeueSeconds, shard});
    }
    return outcome;
}

double argument(int argc, char** argv, int place, double otherwise) {
    return argc > place ? std::atof(argv[place]) : otherwise;
}

}  // namespace

int main(int argc, char** argv) {
    const double hours = argument(argc, argv, 1, 1e6);
    const auto cores = static_cast<std::size_t>(argument(argc, argv, 2, 1000));
    const auto count = static_cast<std::size_t>(argument(argc, argv, 3, 10000));
    const double per_day = argument(argc, argv, 4, 0.1);

    std::mt19937_64 random(1);
    std::lognormal_distribution<double> length_h(-0.693, 0.8);
    std::vector<quorvane::ShardItem> items;
    for (double all = 0; all < hours;) {
        const double length = length_h(random);
        items.push_back({fmt::format("{:09}", items.size()),
                         static_cast<std::int64_t>(length * kBytesPerHour)});
        all += length;
    }
    const std::vector<std::size_t> shard_of = quorvane::cut_shards(items, count);
    std::vector<std::vector<double>> shards(count);
    double work_s = 0;
    for (std::size_t i = 0; i < items.size(); ++i) {
        const double seconds =
            static_cast<double>(items[i].bytes) / kBytesPerHour * kCpuSecondsPerHour +
            kSecondsPerFile;
        shards[shard_of[i]].push_back(seconds);
        work_s += seconds;
    }
    const double ideal_s = work_s / static_cast<double>(cores);
    fmt::print(
        "{:.0f} hours in {} files, {} shards on {} cores, {} failures per core and day: "
        "at best {:.2f} h\n",
        hours, items.size(), count, cores, per_day, ideal_s / 3600);
    for (const auto& [name, after] :
         {std::pair("goes on", AfterFailure::GoOn), std::pair("restarts", AfterFailure::Restart)}) {
        const Outcome outcome = run(shards, {cores, per_day / 86400}, after);
        if (outcome.seconds == 0) {
            fmt::print("  a lost task {}: no end\n", name);
            continue;
        }
        fmt::print(
            "  a lost task {}: {:.2f} h ({:.1f} % more), {} failures, {:.2f} % of the work "
            "lost\n",
            name, outcome.seconds / 3600, 100 * (outcome.seconds / ideal_s - 1), outcome.failures,
            100 * outcome.lost_s / work_s);
    }
}
