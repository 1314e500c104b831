#pragma once

#include <cfenv>
#include <functional>

#include "Common/run/c_locale.h"
#include "leveling/engine/engine_run.h"
#include "library/run/settings.h"

namespace quorvane {

/** Ends a call: not a std::exception, so that it passes through whatever is under way. */
struct CancelledCall {};

/**
 * What a call sets up on the caller's thread and takes down again: numbers with a decimal point,
 * the usual rounding and denormal numbers, and the caller's log for the engine's words. Throws
 * CallError in a callback of a call under way on this thread.
 */
class CallGuard {
  public:
    explicit CallGuard(const Settings& settings);
    ~CallGuard();
    CallGuard(const CallGuard&) = delete;
    CallGuard& operator=(const CallGuard&) = delete;

  private:
    const CLocale locale_;
    std::fenv_t arithmetic_{};
    const TakeEngineWords words_;
};

}  // namespace quorvane
