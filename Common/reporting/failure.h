#pragma once

#include <string>

/*
 * The words of a run, and the first cause of its failure.
 *
 * A failure passes through several hands, and each adds its words: the library's text, the step's
 * message, the driver's "Step 1 did not complete successfully". All of it is printed, but a caller
 * who wants to tell somebody needs the first: it is noted here where it is said, with what kind of
 * failure it is, and the driver makes the run's outcome of it.
 */
namespace reporting {

enum class Kind {
    kNone,            // nothing has failed
    kOther,           // what the step did not like about its options or its input
    kSystem,          // a file or memory: the same input may well be leveled another time
    kNothingToLevel,  // the loud-peak step's own reason: no bin is above its noise floor
};

struct Failure {
    Kind kind = Kind::kNone;
    std::string text;  // without a line end at its end
};

/** Keeps text if it is the first since forget_failure; "" is no cause. */
void note_failure(Kind kind, const std::string& text);

/** The first that was noted; its kind is kNone when none was. */
const Failure& first_failure();

void forget_failure();

/** Writes text and a line end to the standard error stream, flushes, and notes it as a failure. */
void say_failure(Kind kind, const std::string& text);

enum class Stream { kOutput, kError };

/**
 * Takes the engine's words, line ends included. is_cause: they are, or are a part of, the failure
 * that was noted first.
 */
struct Words {
    Stream stream;
    bool is_cause;
    const std::string& text;
};

using MessageSink = void (*)(void* context, const Words& words);

/** Takes all later words instead of the standard streams; null gives them back. */
void set_message_sink(MessageSink sink, void* context);

/** Writes text as it stands to the sink or to the standard stream, and flushes. */
void write_words(Stream stream, const std::string& text);

}  // namespace reporting
