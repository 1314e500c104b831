#include "Common/level/process.h"

namespace level_engine {

/** Never destroyed: a run may be under way on another thread when the process ends. */
Process& process() {
    static auto* const process = new Process;
    return *process;
}

}  // namespace level_engine
