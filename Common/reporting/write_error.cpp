#include "Common/reporting/write_error.h"

namespace reporting {

namespace {

thread_local int write_error = 0;

}  // namespace

void note_write_error(int error) {
    if (write_error == 0) {
        write_error = error;
    }
}

int first_write_error() {
    return write_error;
}

void forget_write_error() {
    write_error = 0;
}

}  // namespace reporting
