#include "leveling/watch/metrics.h"

#include <fmt/format.h>

namespace quorvane {
namespace {

std::string head(const char* name, const char* type, const char* help) {
    return fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
}

std::string sample(const char* name, const char* type, const char* help, double value) {
    return head(name, type, help) + fmt::format("{} {}\n", name, value);
}

}  // namespace

void WatchMetrics::count(const FileFacts& facts, std::time_t now) {
    ++files[facts.outcome];
    work_s += facts.outcome == Outcome::UpToDate ? 0 : facts.elapsed_s;
    if (facts.outcome == Outcome::Leveled || facts.outcome == Outcome::Copied) {
        audio_s += facts.duration_s();
        last_success = now;
    }
}

std::string to_text(const WatchMetrics& metrics) {
    std::string text = head("quorvane_files_total", "counter", "Files finished, by outcome.");
    for (const Outcome outcome : {Outcome::Leveled, Outcome::Copied, Outcome::UpToDate,
                                  Outcome::Skipped, Outcome::Failed, Outcome::Interrupted}) {
        const auto found = metrics.files.find(outcome);
        text += fmt::format("quorvane_files_total{{outcome=\"{}\"}} {}\n", to_text(outcome),
                            found == metrics.files.end() ? 0 : found->second);
    }
    text += sample("quorvane_audio_seconds_total", "counter",
                   "Duration of the recordings that were leveled.", metrics.audio_s);
    text += sample("quorvane_work_seconds_total", "counter",
                   "Time that the workers of all files took.", metrics.work_s);
    text += sample("quorvane_queue_length", "gauge", "Files that arrived and are not finished yet.",
                   static_cast<double>(metrics.queue));
    text += sample("quorvane_watching", "gauge", "1 while the watched folder is there.",
                   metrics.watching ? 1 : 0);
    text += sample("quorvane_waiting_for_room", "gauge", "1 while a disk is full.",
                   metrics.waiting_for_room ? 1 : 0);
    text += sample("quorvane_last_success_timestamp_seconds", "gauge",
                   "When a recording was last leveled; 0: not since the start.",
                   static_cast<double>(metrics.last_success));
    text += sample("quorvane_start_timestamp_seconds", "gauge", "When this watch started.",
                   static_cast<double>(metrics.started));
    return text;
}

}  // namespace quorvane
