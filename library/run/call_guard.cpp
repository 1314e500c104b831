#include "library/run/call_guard.h"

#include <boost/algorithm/string/split.hpp>
#include <string>
#include <vector>

namespace quorvane {
namespace {

thread_local bool is_called = false;

/** The engine's lines, one at a time. */
EngineWords words_for(const Settings& settings) {
    return [log = settings.log, context = settings.context](const std::string& text) {
        if (log == nullptr) {
            return;
        }
        std::vector<std::string> lines;
        boost::algorithm::split(lines, text, [](char c) { return c == '\n'; });
        for (const std::string& line : lines) {
            if (!line.empty()) {
                log(context, QUORVANE_LOG_DETAIL, line.c_str());
            }
        }
    };
}

}  // namespace

CallGuard::CallGuard(const Settings& settings) : words_(words_for(settings)) {
    if (is_called) {
        throw CallError(QUORVANE_WRONG_STATE,
                        "called from a callback of a call that is under way on this thread");
    }
    std::fegetenv(&arithmetic_);
    std::fesetenv(FE_DFL_ENV);
    is_called = true;
}

CallGuard::~CallGuard() {
    is_called = false;
    std::fesetenv(&arithmetic_);
}

}  // namespace quorvane
