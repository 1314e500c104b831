#include "Common/reporting/failure.h"

#include <iostream>
#include <mutex>
#include <utility>

namespace reporting {

namespace {

// Of the thread, like the run that they belong to.
thread_local Failure failure;
thread_local Defect defect;
thread_local int quiet = 0;  // number of objects that suppress output
thread_local ThreadSink* thread_sink = nullptr;

std::mutex process_sink_mutex;

/** To be used with the mutex locked. Never destroyed: words may come at the end of the process. */
MessageSink& process_sink() {
    static auto* const sink = new MessageSink;
    return *sink;
}

/** The cause may have several lines, which are written one by one; line ends do not count. */
bool is_part_of_cause(const std::string& text) {
    const std::size_t end = text.find_last_not_of('\n');
    return end != std::string::npos &&
           failure.text.find(text.substr(0, end + 1)) != std::string::npos;
}

}  // namespace

void note_failure(Kind kind, const std::string& text) {
    if (failure.kind == Kind::kNone && !text.empty()) {
        failure = {kind, text};
    }
}

const Failure& first_failure() {
    return failure;
}

void forget_failure() {
    failure = Failure();
}

void note_defect(const Defect& noted) {
    if (defect.kind == DefectKind::kNone) {
        defect = noted;
    }
}

const Defect& first_defect() {
    return defect;
}

void forget_defect() {
    defect = Defect();
}

void say_failure(Kind kind, const std::string& text) {
    note_failure(kind, text);
    write_words(Stream::kError, text + "\n");
}

void set_message_sink(MessageSink sink) {
    const std::lock_guard<std::mutex> lock(process_sink_mutex);
    process_sink() = std::move(sink);
}

MessageSink message_sink() {
    const std::lock_guard<std::mutex> lock(process_sink_mutex);
    return process_sink();
}

ThreadSink::ThreadSink(MessageSink sink) : sink_(std::move(sink)), outer_(thread_sink) {
    thread_sink = this;
}

ThreadSink::~ThreadSink() {
    thread_sink = outer_;
}

ThreadSink* ThreadSink::current() {
    return thread_sink;
}

Quiet::Quiet() {
    ++quiet;
}

Quiet::~Quiet() {
    --quiet;
}

void write_words(Stream stream, const std::string& text) {
    if (quiet > 0) {
        return;
    }
    const MessageSink sink = thread_sink != nullptr ? thread_sink->sink() : message_sink();
    if (sink) {
        sink({stream, is_part_of_cause(text), text});
    } else {
        // Flushed at once: a process that dies in the next step has said what it had to say.
        (stream == Stream::kError ? std::cerr : std::cout) << text << std::flush;
    }
}

}  // namespace reporting
