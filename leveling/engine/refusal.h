#pragma once

#include <string>

#include "Common/outcome.h"

namespace quorvane {

/**
 * Why the result of a run that returned 0 must not be delivered, to be put behind the input's name;
 * "" when it may. The engine goes on with what it can read and copies what it cannot level: to
 * refuse such a result is up to its callers, and this is the one place where they decide it.
 */
std::string refusal_of(const LevelOutcome& outcome);

}  // namespace quorvane
