#include "Common/step/failure.h"

#include <exception>
#include <iostream>

#include "Common/audio/frame_file.h"
#include "Common/gate/gate.h"
#include "Common/ss_util.h"

void report_current_failure() {
    try {
        throw;
    } catch (const ss_cancel_exception&) {
        throw;
    } catch (const gate::ss_sf_write_error& failure) {  // hides its ss_error base
        failure.report();
    } catch (const ss_error& failure) {
        failure.report();
    } catch (const printable_err& failure) {
        failure.report();
    } catch (const std::exception& failure) {
        std::cerr << failure.what() << std::flush;
    }
}
