#pragma once

#include <functional>
#include <string>
#include <utility>

/*
 * A run's messages and the first cause of its failure. Both belong to the run's thread; the helper
 * thread of a run reports only exceptions, which the run's thread rethrows.
 *
 * A failure passes through several layers and each prints a message: the library's text, the
 * step's message, the driver's "Step 1 did not complete successfully". A user interface needs the
 * first one, the cause. It is stored here together with its kind when it is printed, and the driver
 * builds the run's outcome from it.
 */
namespace reporting {

enum class Kind {
    kNone,            // nothing has failed
    kOther,           // an option or the input is not usable
    kSystem,          // a file or memory: a later run of the same input may succeed
    kNothingToLevel,  // the loud-peak step's own reason: no bin is above its noise floor
};

struct Failure {
    Kind kind = Kind::kNone;
    std::string text;  // without a line end at its end
};

/** Stores text if it is the first since forget_failure; ignores "". */
void note_failure(Kind kind, const std::string& text);

/** The first failure that was stored; its kind is kNone when there is none. */
const Failure& first_failure();

void forget_failure();

/** Why a run's result may be bad although every step went on and returned success. */
enum class DefectKind {
    kNone,
    kFramesMissing,  // a sound file gave fewer frames than its header promises
    kNotFinite,      // a sample or a gain that is infinite or not a number went through
    kOther           // a file that could not be written, a cue outside the recording
};

/**
 * A problem that a caller must know before it uses the result. Steps continue and report it here;
 * the caller decides whether to refuse the result.
 */
struct Defect {
    DefectKind kind = DefectKind::kNone;
    std::string text;          // names the file
    bool is_systems = false;   // a system error: a later read of the same file may succeed
    long long promised = -1;   // frames by the header, maybe an estimate
    long long read = -1;       // frames
    std::string library_text;  // the sound library's own words, "" without an error of its
};

/** Stores the first defect of a run; one of kind kNone is replaced by the next. */
void note_defect(const Defect& noted);

/** The first that was noted; its kind is kNone when none was. */
const Defect& first_defect();

/** Call it at the beginning of a run. Steps of one run share its defects. */
void forget_defect();

/** Writes text and a line end to the standard error stream, flushes, and stores the failure. */
void say_failure(Kind kind, const std::string& text);

enum class Stream { kOutput, kError };

/**
 * A piece of the engine's output, with its line ends. is_cause: it is, or is part of, the failure
 * that was stored first.
 */
struct Words {
    Stream stream;
    bool is_cause;
    const std::string& text;
};

using MessageSink = std::function<void(const Words& words)>;

/** During its lifetime this thread prints nothing; failures are still stored. */
class Quiet {
  public:
    Quiet();
    ~Quiet();
    Quiet(const Quiet&) = delete;
    Quiet& operator=(const Quiet&) = delete;
};

/**
 * Sets a function that gets all later output of the process instead of the standard streams, except
 * for threads with a ThreadSink. An empty function restores the streams.
 */
void set_message_sink(MessageSink sink);

/** The sink of the process, which may be empty. */
MessageSink message_sink();

/** During its lifetime this thread's output goes to this sink; empty: to the standard streams.
 */
class ThreadSink {
  public:
    explicit ThreadSink(MessageSink sink);
    ~ThreadSink();
    ThreadSink(const ThreadSink&) = delete;
    ThreadSink& operator=(const ThreadSink&) = delete;

    /** The innermost one of this thread, or null. */
    static ThreadSink* current();

    void replace(MessageSink sink) { sink_ = std::move(sink); }

    const MessageSink& sink() const { return sink_; }

  private:
    MessageSink sink_;
    ThreadSink* outer_;
};

/** Writes text unchanged to the sink or to the standard stream, and flushes. */
void write_words(Stream stream, const std::string& text);

}  // namespace reporting
