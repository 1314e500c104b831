#include "Common/ss_util.h"

#include "Common/reporting/log.h"

namespace {
constexpr const char* kSource = "Common/ss_util";
}

void ss_error::report() const {
    log_failure(kSource, 96, "Unknown error.");
}

void ss_alloc_error::report() const {
    log_failure(kSource, 105, "Out of memory.", reporting::Kind::kSystem);
}

void fail_allocation(const std::string& array_name,
                     const std::string& reason,
                     const std::string& source,
                     int line) {
    log_failure(source, line,
                "Error in allocating memory for " + array_name + ": " + reason + " (line " +
                    std::to_string(line) + ")",
                reporting::Kind::kSystem);
    throw ss_alloc_error();
}
