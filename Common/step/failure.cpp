#include "Common/step/failure.h"

#include <boost/system/system_error.hpp>
#include <exception>
#include <new>
#include <string>
#include <system_error>

#include "Common/audio/frame_file.h"
#include "Common/reporting/failure.h"
#include "Common/ss_util.h"
#include "Common/step/option_errors.h"

namespace level_engine {

namespace {

/** Of the exceptions that others throw, those that have a file or memory for their cause. */
reporting::Kind kind_of(const std::exception& failure) {
    const bool is_systems = dynamic_cast<const boost::system::system_error*>(&failure) != nullptr ||
                            dynamic_cast<const std::system_error*>(&failure) != nullptr ||
                            dynamic_cast<const std::bad_alloc*>(&failure) != nullptr;
    return is_systems ? reporting::Kind::kSystem : reporting::Kind::kOther;
}

template <class Error>
void note_and_write_what(const Error& failure) {
    {
        const reporting::Quiet quiet;
        failure.report();
    }
    reporting::write_words(reporting::Stream::kError, failure.what());
}

}  // namespace

void report_current_failure() {
    try {
        throw;
    } catch (const ss_cancel_exception&) {
        throw;
    } catch (const ss_error& failure) {
        failure.report();
        // These have no handler of their own: what is written is their what(), what they would
        // report is the cause that the outcome has.
    } catch (const self_reporting& failure) {
        note_and_write_what(failure);
    } catch (const printable_err& failure) {
        note_and_write_what(failure);
    } catch (std::exception& failure) {
        const std::string text = text_of_option_error(failure);
        // What is printed stays the exception's own text; the cause is put into words for people.
        const bool is_memory = dynamic_cast<const std::bad_alloc*>(&failure) != nullptr;
        reporting::note_failure(kind_of(failure), is_memory ? "there is not enough memory" : text);
        reporting::write_words(reporting::Stream::kError, text);
    }
}

}  // namespace level_engine
