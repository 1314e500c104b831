#pragma once

#include <memory>

namespace level_engine {

class OutcomeRecord;
struct RunSettings;

/**
 * Runs the engine's command line on this thread and returns a Result, as levelMain does. The record
 * becomes that of this thread and receives the outcome. Several threads can call at the same time,
 * each with its own record. Exceptions that are not std::exception reach the caller.
 */
int call_engine(int argc,
                char** argv,
                const RunSettings& settings,
                const std::shared_ptr<OutcomeRecord>& record);

/** Whether an engine call is under way on this thread: a second one would change its state. */
bool is_engine_called();

}  // namespace level_engine

using level_engine::call_engine;
using level_engine::is_engine_called;
using level_engine::OutcomeRecord;
using level_engine::RunSettings;
