#include "Common/reporting/failure.h"

#include <iostream>

namespace reporting {

namespace {

// Of the process, like the run that they belong to.
Failure failure;
Defect defect;
MessageSink sink = nullptr;
void* sink_context = nullptr;
int quiet = 0;  // how many ask for it

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

void set_message_sink(MessageSink new_sink, void* context) {
    sink = new_sink;
    sink_context = context;
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
    if (sink != nullptr) {
        sink(sink_context, {stream, is_part_of_cause(text), text});
    } else {
        // Flushed at once: a process that dies in the next step has said what it had to say.
        (stream == Stream::kError ? std::cerr : std::cout) << text << std::flush;
    }
}

}  // namespace reporting
