#include "leveling/engine/refusal.h"

namespace quorvane {

std::string refusal_of(const LevelOutcome& outcome) {
    if (outcome.defect != kLevelNoDefect) {
        return outcome.defect_reason;
    }
    // Where the system failed, the same recording may be leveled another time: a copy would hide
    // that. Where the recording itself is the reason, its copy is all there can be.
    const bool failed_copy = outcome.kind == kLevelCopiedStepFailed && outcome.system_failure != 0;
    return failed_copy ? outcome.reason : "";
}

}  // namespace quorvane
