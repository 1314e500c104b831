#pragma once

#include <memory>

namespace level_engine {

class OutcomeRecord;
struct RunSettings;

/**
 * Runs the engine's command line on this thread and returns a Result, as levelMain does. The record
 * becomes the one of this thread and receives the outcome. Several threads can call at a time, each
 * with a record of its own. What is no std::exception passes to the caller.
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
