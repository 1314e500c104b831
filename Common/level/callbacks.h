#pragma once

#include <functional>
#include <string>

#include "Common/level.h"
#include "Common/reporting/failure.h"
#include "Common/run/run_settings.h"

namespace level_engine {

/*
 * The C callbacks with their contexts, as the functions that a run calls. A null callback gives an
 * empty function.
 */

reporting::MessageSink sink_for(LevelMessage messages, void* context);

/** For LevelCopy and LevelDeliver, which are one type. */
std::function<int(const std::string&, const std::string&)> mover_for(LevelCopy move, void* context);

/** A null name stands for the default. */
void set_final_file(RunSettings& settings, LevelOpenFinal open, void* context, const char* name);

}  // namespace level_engine
