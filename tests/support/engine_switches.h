#pragma once

#include "Common/level.h"

/** As a member of a fixture: takes back all that a test sets for later runs of this process. */
struct EngineSwitches {
    EngineSwitches() = default;
    EngineSwitches(const EngineSwitches&) = delete;
    EngineSwitches& operator=(const EngineSwitches&) = delete;

    ~EngineSwitches() {
        levelClearCancel();
        levelAskToCancel(nullptr, nullptr);
        levelSetCopy(nullptr, nullptr);
        levelKeepIntermediates(0);
        levelHideIntermediates(0);
        levelSetFinalFile(nullptr, nullptr, nullptr);
        levelLowerTarget(0);
        levelCollectFindings(0);
        levelSetMessages(nullptr, nullptr);
    }
};
