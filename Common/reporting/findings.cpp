#include "Common/reporting/findings.h"

#include <initializer_list>
#include <limits>

namespace level_engine {

LevelFindings nothing_found() {
    constexpr double kUnknown = std::numeric_limits<double>::quiet_NaN();
    LevelFindings found{};
    for (double* number :
         {&found.filtered_level_db, &found.gate_threshold_db, &found.loud_peak_level_db,
          &found.loud_peak_threshold_db, &found.loud_level_db, &found.loud_threshold_db,
          &found.segment_threshold_db, &found.bin_s, &found.normalize_level_db,
          &found.target_level_db, &found.fit_error_db, &found.fit_gain, &found.target_lowered_db,
          &found.output_peak, &found.output_rms}) {
        *number = kUnknown;
    }
    found.held_samples = -1;
    found.output_frames = -1;
    return found;
}

LevelFindings& findings() {
    thread_local LevelFindings found = nothing_found();
    return found;
}

void forget_findings() {
    findings() = nothing_found();
}

}  // namespace level_engine
