#include "Common/reporting/log.h"

#include <cstdio>
#include <ctime>

void log_msg(const std::string& /*source*/, int /*line*/, const std::string& text) {
    reporting::write_words(reporting::Stream::kOutput, text + "\n");
}

int level_engine::log_failure(const std::string& source,
                              int line,
                              const std::string& text,
                              reporting::Kind kind) {
    reporting::note_failure(kind, text);
    log_msg(source, line, text);
    return 1;
}

void ShowDuration(unsigned long start) {
    constexpr double kTicksPerSecond = 1000000.0;
    const double ticks = static_cast<double>(static_cast<unsigned long>(std::clock()) - start);
    char text[64];
    std::snprintf(text, sizeof text, "elapsed time: %4.1f seconds", ticks / kTicksPerSecond);
    log_msg("Common/level", __LINE__, text);
}
