#include "Common/ss_util.h"

#include "Common/reporting/log.h"

namespace {
constexpr const char* kSource = "Common/ss_util";
}

void ss_error::report() const {
    log_msg(kSource, 96, "Unknown error.");
}

void ss_alloc_error::report() const {
    log_msg(kSource, 105, "Out of memory.");
}

void fail_allocation(const std::string& array_name,
                     const std::string& reason,
                     const std::string& source,
                     int line) {
    log_msg(source, line,
            "Error in allocating memory for " + array_name + ": " + reason + " (line " +
                std::to_string(line) + ")");
    throw ss_alloc_error();
}
