#include "leveling/watch/watcher.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <thread>
#include <utility>

#include "leveling/storage/staged_output.h"

/*
 * Two threads. The caller's is in Batch::run(), since workers end with the thread that started
 * them. The other one sleeps in poll() on the folder, on signals and on a pipe, and owns everything
 * else: it decides what is begun, and calls the observer. What the batch reports is put on a list
 * for it. Without a file on its way both sleep without a time limit, so that an idle watch takes no
 * processor time.
 *
 * The batch gets no more files than it works on at a time. The rest waits here, where a full disk
 * or a vanished folder can hold it back.
 */

namespace quorvane {
namespace fs = std::filesystem;

namespace {

// Metrics and status are written at most this often.
constexpr std::chrono::seconds kStateEvery{1};
// While the folder of outputs is gone.
constexpr std::chrono::seconds kLookForOutputsEvery{2};
/** A batch with workers ticks several times a second; one that does not is stuck. */
constexpr std::chrono::seconds kStuck{30};

/** The output folder, where it is one of the folders that would be watched. */
std::string left_out_of(const WatchRequest& request) {
    std::error_code error;
    return request.output_dir.empty() || fs::equivalent(request.output_dir, request.folder, error)
               ? ""
               : request.output_dir;
}

}  // namespace

Watcher::Watcher(WatchRequest request, WatchObserver& observer)
    : request_(std::move(request)),
      observer_(observer),
      output_mount_(request_.output_dir.empty() ? request_.folder : request_.output_dir),
      batch_(request_.jobs, request_.options, *this),
      signals_(batch_),
      arrivals_(request_.settle_s),
      watch_(request_.folder,
             left_out_of(request_),
             // Called in the loop's thread, by look() and by read().
             [this](const std::string& path, FolderWatch::Change change) {
                 const auto now = Clock::now();
                 switch (change) {
                     case FolderWatch::Change::Closed:
                         return arrivals_.complete(path, now);
                     case FolderWatch::Change::Appeared:
                         return arrivals_.appeared(path, now);
                     case FolderWatch::Change::Found:
                         return arrivals_.found(path, now);
                     case FolderWatch::Change::Gone:
                         // A new file of that name may come from elsewhere.
                         outputs_.erase(path);
                         return arrivals_.gone(path);
                 }
             }) {
    metrics_.started = std::time(nullptr);
    if (!request_.on_done.empty()) {
        done_program_ =
            // Called in the program's thread, so it goes the way of the batch's events.
            std::make_unique<DoneProgram>(request_.on_done, [this](const std::string& text) {
                post({Event::Kind::Problem, 0, text});
            });
    }
}

Watcher::~Watcher() = default;

void Watcher::run() {
    std::exception_ptr error;
    std::thread thread([&] {
        try {
            loop();
        } catch (...) {
            // An exception may not leave a thread; run() throws it once both have ended.
            error = std::current_exception();
            batch_.stop(Batch::Stop::CleanUp);
        }
    });
    batch_.run();
    batch_ended_ = true;
    // Wakes the loop, which looks at the flag.
    signals_.wake();
    thread.join();
    if (error) {
        std::rethrow_exception(error);
    }
}

void Watcher::post(Event event) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        events_.push_back(std::move(event));
    }
    // Outside of the lock: the loop takes it as soon as it wakes.
    signals_.wake();
}

void Watcher::started(std::size_t index) {
    // A worker that starts is a sign of life as well.
    tick();
    post({Event::Kind::Started, index, ""});
}

void Watcher::messages(std::size_t index, const std::string& text) {
    post({Event::Kind::Messages, index, text});
}

void Watcher::finished(std::size_t index, const FileFacts& facts) {
    // Curves are most of the memory, and a watch reports none.
    FileFacts kept = facts;
    strip_curves(kept);
    post({Event::Kind::Finished, index, "", std::move(kept)});
}

void Watcher::tick() {
    // Read by ping() in the other thread.
    last_tick_ = Clock::now().time_since_epoch().count();
}

void Watcher::loop() {
    // Reports every file that is there already.
    watch_.look();
    check_folders();
    manager_.ready(fmt::format("watching {}", request_.folder));
    while (!batch_ended_) {
        std::vector<pollfd> polled;
        sleep(polled);
        signals_.drain();
        take_signals();
        watch_.read(polled.data());
        take_events();
        check_folders();
        // After a stop nothing more is begun.
        if (!told_stop_) {
            take_arrivals();
        }
        tell_state();
        ping();
    }
    // What the batch reported at last.
    take_events();
    // A second signal: what waits for the program is dropped.
    if (done_program_ && signals_.stops() > 1) {
        if (const std::size_t dropped = done_program_->drop(); dropped > 0) {
            observer_.problem(fmt::format("--on-done {} was not run for {} finished files",
                                          request_.on_done, dropped));
        }
    }
    // Runs what is left in its queue, and waits for it.
    done_program_.reset();
    take_events();
    // The last state is written however short ago the one before was.
    state_told_ = {};
    state_changed_ = true;
    tell_state();
}

/** Sleeps until something happens. polled: what watch_ asked for comes first. */
void Watcher::sleep(std::vector<pollfd>& polled) const {
    const auto watched = watch_.descriptors();
    polled.assign(watched.begin(), watched.end());
    polled.push_back({signals_.descriptor(), POLLIN, 0});
    if (poll(polled.data(), polled.size(), milliseconds_to_sleep()) < 0) {
        for (pollfd& one : polled) {
            one.revents = 0;  // a signal came; its pipe is read next
        }
    }
}

/** Until the next thing that is to be done at a time; -1: until something happens. */
int Watcher::milliseconds_to_sleep() const {
    std::optional<Clock::time_point> next = watch_.next_look();
    // The earliest of all times counts.
    const auto at = [&](Clock::time_point time) { next = next ? std::min(*next, time) : time; };
    if (!told_stop_ && due_.empty() && arrivals_.next()) {
        at(*arrivals_.next());
    }
    if (without_room_ && !told_stop_) {
        at(next_try_);
    }
    if (outputs_gone_) {
        at(Clock::now() + kLookForOutputsEvery);
    }
    if (state_changed_) {
        at(state_told_ + kStateEvery);
    }
    if (manager_.alive_every()) {
        at(pinged_ + *manager_.alive_every());
    }
    if (!next) {
        // Without a time limit.
        return -1;
    }
    using std::chrono::milliseconds;
    const auto left = std::chrono::ceil<milliseconds>(*next - Clock::now());
    // poll() takes milliseconds as an int; an hour is far below its limit.
    constexpr milliseconds kLongest{3'600'000};
    return static_cast<int>(std::clamp(left, milliseconds(0), kLongest).count());
}

void Watcher::take_signals() {
    if (signals_.take_hangup()) {
        manager_.reloading();
        observer_.reopen();
        manager_.ready(fmt::format("watching {}", request_.folder));
    }
    if (signals_.stops() > 0 && !told_stop_) {
        told_stop_ = true;
        manager_.stopping();
        observer_.stopping(running_);
    }
}

void Watcher::take_events() {
    std::vector<Event> events;
    // The list is swapped out under the lock and reported without it, as an observer may take long.
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        events.swap(events_);
    }
    for (Event& event : events) {
        switch (event.kind) {
            case Event::Kind::Started:
                ++running_;
                observer_.started(work_.at(event.index).file.input);
                break;
            case Event::Kind::Messages:
                observer_.messages(event.text);
                break;
            case Event::Kind::Finished:
                take_finished(event.index, event.facts);
                break;
            case Event::Kind::Problem:
                observer_.problem(event.text);
                break;
        }
    }
    state_changed_ = state_changed_ || !events.empty();
}

/** Reports folders that went or came back, and what it costs to watch them. */
void Watcher::check_folders() {
    const bool outputs_gone = !output_mount_.is_mounted();
    if (outputs_gone && !outputs_gone_) {
        ++absences_;
        observer_.gone(output_mount_.mount_point());
    }
    const bool outputs_back = !outputs_gone && outputs_gone_;
    outputs_gone_ = outputs_gone;
    // Reported when it differs from what was reported last.
    const bool changed = told_source_ != watch_.source() || told_why_ != watch_.why_search();
    if (changed && watch_.source() == FolderWatch::Source::None) {
        ++absences_;
        observer_.gone(request_.folder);
    } else if ((changed || outputs_back) && watch_.source() != FolderWatch::Source::None) {
        observer_.watching(watch_.why_search());
        // Files that failed while a folder was gone get another try.
        for (const std::string& path : std::exchange(after_return_, {})) {
            arrivals_.again(path, Clock::now());
        }
    }
    state_changed_ = state_changed_ || changed || outputs_back;
    told_source_ = watch_.source();
    told_why_ = watch_.why_search();
}

std::size_t Watcher::queue_length() const {
    // While it is tried again it is in work_ and counts there.
    const std::size_t stopped = without_room_ && work_.empty() ? 1 : 0;
    return arrivals_.size() + due_.size() + queue_.size() + work_.size() + after_return_.size() +
           stopped;
}

/** Writes the metrics and the manager's status, at most once in a while. */
void Watcher::tell_state() {
    const auto now = Clock::now();
    if (!state_changed_ || now - state_told_ < kStateEvery) {
        return;
    }
    state_told_ = now;
    state_changed_ = false;
    metrics_.queue = queue_length();
    metrics_.watching = watch_.source() != FolderWatch::Source::None && !outputs_gone_;
    metrics_.waiting_for_room = without_room_.has_value();
    manager_.status(fmt::format("watching {}: {} leveled, {} failed, {} waiting", request_.folder,
                                metrics_.files[Outcome::Leveled] + metrics_.files[Outcome::Copied],
                                metrics_.files[Outcome::Failed], metrics_.queue));
    if (request_.metrics.empty()) {
        return;
    }
    try {
        // The file is replaced as a whole, so that a reader never sees half of it.
        write_whole_text(request_.metrics, to_text(metrics_));
        metrics_failed_ = false;
    } catch (const std::system_error& error) {
        // Reported once, until a write succeeds.
        if (!std::exchange(metrics_failed_, true)) {
            observer_.problem(fmt::format("--metrics {} cannot be written: {}", request_.metrics,
                                          error.code().message()));
        }
    }
}

/** Tells the manager that both threads are well. */
void Watcher::ping() {
    const auto now = Clock::now();
    const auto ticked = Clock::time_point(Clock::duration(last_tick_.load()));
    // Without a file in work the batch does not tick.
    if (manager_.alive_every() && now - pinged_ >= *manager_.alive_every() &&
        (running_ == 0 || now - ticked < kStuck)) {
        pinged_ = now;
        manager_.alive();
    }
}

}  // namespace quorvane
