#pragma once

#include <string>

#include "Common/audio/sound_handle.h"
#include "Common/files/same_file.h"
#include "Common/reporting/log.h"
#include "Common/ss_util.h"
#include "Common/units.h"

/**
 * The errors of the signal-processing steps. Every step namespace has types of its own, made from
 * these templates with its Step tag, so that a handler for one step's error matches no other's:
 *
 *     struct Step : step_errors::ToStandardError { static constexpr const char* kName = "gate"; };
 *     using ss_sf_open_error = step_errors::sf_open_error<Step>;
 *
 * The names are aliases, which cannot be declared ahead: include the step's header. Classes of the
 * step's own would not do, since what the steps share (bins, loops, writers) throws these
 * templates, and a handler for the step's name must take that very type.
 *
 * A Step has kName and, from one of the two bases below, where its messages go.
 */
namespace step_errors {

/** Messages go straight to the standard error stream; open errors add the library's own text. */
struct ToStandardError {
    static constexpr bool kLibraryText = true;

    static void report(const char* /*name*/, int /*line*/, const std::string& text) {
        reporting::write_words(reporting::Stream::kError, text + "\n");
    }
};

/** Messages go to log_msg under the step's own header. */
struct ToLog {
    static constexpr bool kLibraryText = false;

    static void report(const char* name, int line, const std::string& text) {
        log_msg(std::string("Common/") + name + "/" + name, line, text);
    }
};

/** Writes one message of a step. */
template <class Step>
void say(int line, const std::string& text) {
    Step::report(Step::kName, line, text);
}

/** Writes it and notes it as the failure of a file. */
template <class Step>
void say_file_failure(int line, const std::string& text) {
    reporting::note_failure(reporting::Kind::kSystem, text);
    say<Step>(line, text);
}

/** "" or the sound-file library's text for the failed open, on a line of its own. */
template <class Step>
std::string library_text() {
    return Step::kLibraryText ? "\n" + sound_open_reason() : std::string();
}

/** The cause was written where the command line was parsed: nothing is left to report. */
template <class Step>
class command_line_error : public ss_error {
  public:
    void report() const override {}
};

/** The command line names no file. Its parser reports all other faults. */
template <class Step>
class empty_command_line_error : public ss_error {
  public:
    void report() const override {
        say<Step>(__LINE__, std::string(Step::kName) + ": no arguments; try --help");
    }
};

/** Base of the errors that concern one file. */
template <class Step>
class file_error : public ss_error {
  public:
    explicit file_error(const std::string& file) : file_(file) {}

  protected:
    std::string file_;
};

/** Base of the errors of reading and writing. */
template <class Step>
class sf_io_error : public file_error<Step> {
  public:
    using file_error<Step>::file_error;

    // A fixed number in place of a line is the message's mark: see log.h.
    void report() const override { say_file_failure<Step>(61, "Sound file i/o error."); }
};

/** Adds no members: a base class for handlers of both the input's and the output's errors. */
template <class Step>
class sf_open_error : public sf_io_error<Step> {
  public:
    using sf_io_error<Step>::sf_io_error;
};

/** The input is missing, is not a sound file or may not be read. */
template <class Step>
class sf_openinput_error : public sf_open_error<Step> {
  public:
    using sf_open_error<Step>::sf_open_error;

    void report() const override {
        say_file_failure<Step>(
            91, "Error opening " + this->file_ + " for input" + library_text<Step>());
    }
};

/** A place that may not be written to, or a format that the library does not write. */
template <class Step>
class sf_openoutput_error : public sf_open_error<Step> {
  public:
    using sf_open_error<Step>::sf_open_error;

    void report() const override {
        say_file_failure<Step>(
            102, "Error opening " + this->file_ + " for output" + library_text<Step>());
    }
};

/** The file ended before the frames that its header promised. Three messages, but one cause. */
template <class Step>
class sf_unexpected_eof : public sf_io_error<Step> {
  public:
    using sf_io_error<Step>::sf_io_error;

    void report() const override {
        reporting::note_failure(
            reporting::Kind::kSystem,
            "Error reading " + this->file_ + ": expected more samples; it may be corrupt");
        say<Step>(72, "Error reading " + this->file_);
        say<Step>(73, "Expected more samples");
        say<Step>(74, "The sound file may be corrupt");
    }
};

/** A recording in which the library cannot go where the step has to read. */
template <class Step>
class sf_seek_error : public sf_io_error<Step> {
  public:
    using sf_io_error<Step>::sf_io_error;

    void report() const override {
        say_file_failure<Step>(__LINE__, "Error seeking in " + this->file_);
    }
};

/**
 * A short write. The I/O error is a private base, so a step's handlers for ss_error and for its I/O
 * errors do not match: the error reaches the caller's handler for std::exception.
 */
template <class Step>
class sf_write_error : private sf_io_error<Step>, public self_reporting {
  public:
    /** expected, written: samples. The library's reason is the one kept last, see sound_handle.h.
     */
    sf_write_error(const std::string& file, long long expected, long long written)
        : sf_io_error<Step>(file),
          expected_(expected),
          written_(written),
          reason_(sound_write_reason().empty() ? sf_strerror(nullptr) : sound_write_reason()) {}

    void report() const override {
        say_file_failure<Step>(__LINE__, "Error writing to " + this->file_ +
                                             "\nExpected to write " + std::to_string(expected_) +
                                             ", instead wrote " + std::to_string(written_) + "\n" +
                                             reason_);
    }

  private:
    long long expected_;
    long long written_;
    std::string reason_;
};

template <class Step>
class sf_format_error : public file_error<Step> {
  public:
    using file_error<Step>::file_error;
};

/** The steps on audio know mono and stereo. Found in the header, before any work. */
template <class Step>
class sf_too_many_channels_error : public sf_format_error<Step> {
  public:
    sf_too_many_channels_error(const std::string& file, int channels)
        : sf_format_error<Step>(file), channels_(channels) {}

    void report() const override {
        reporting::note_failure(reporting::Kind::kOther, this->file_ + ": it has " +
                                                             std::to_string(channels_) +
                                                             " channels, at most 2 can be leveled");
        say<Step>(43, std::string(Step::kName) + ": cannot process more than 2 channels; " +
                          this->file_ + " has " + std::to_string(channels_));
    }

  private:
    int channels_;
};

/** Throws sf_too_many_channels_error. Call it with the header's facts, before any work. */
template <class Step>
void require_known_channels(const std::string& file, const SF_INFO& info) {
    if (info.channels > kMostChannels) {
        throw sf_too_many_channels_error<Step>(file, info.channels);
    }
}

/** No bin is above the noise floor. Where step 3 finds that, the driver copies the input. */
template <class Step>
class sf_input_silent_error : public sf_format_error<Step> {
  public:
    using sf_format_error<Step>::sf_format_error;

    void report() const override {
        reporting::note_failure(reporting::Kind::kNothingToLevel, this->file_ + " is silent");
        say<Step>(51, this->file_ + " is silent");
    }
};

/** The output is the input. Found before the output is opened, which would empty it. */
template <class Step>
class same_file_error : public file_error<Step> {
  public:
    using file_error<Step>::file_error;

    void report() const override {
        const std::string text = overwritten_input_text(this->file_);
        reporting::note_failure(reporting::Kind::kOther, text);
        say<Step>(__LINE__, text);
    }
};

/** To be called before the output is opened. Throws same_file_error. */
template <class Step>
void require_other_file(const std::string& input, const std::string& output) {
    if (is_same_file(input, output)) {
        throw same_file_error<Step>(output);
    }
}

}  // namespace step_errors
