#include "Common/step/failure.h"

#include <exception>

#include "Common/audio/frame_file.h"
#include "Common/reporting/failure.h"
#include "Common/ss_util.h"

void report_current_failure() {
    try {
        throw;
    } catch (const ss_cancel_exception&) {
        throw;
    } catch (const self_reporting& failure) {
        failure.report();
    } catch (const ss_error& failure) {
        failure.report();
    } catch (const printable_err& failure) {
        failure.report();
    } catch (const std::exception& failure) {
        reporting::note_failure(reporting::Kind::kOther, failure.what());
        reporting::write_words(reporting::Stream::kError, failure.what());
    }
}
