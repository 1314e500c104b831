#include "cli/report.h"

namespace cli {
std::string write_report(const std::string& path, const std::vector<FileFacts>&) {
    return path;
}
}  // namespace cli
