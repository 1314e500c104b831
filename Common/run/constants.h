#pragma once

namespace level_engine {

/*
 * The fixed figures of a run. A bin, the unit of the measurements and of the gain curve, lasts
 * 50 ms; steps 5 to 10 must agree on it, and one of them takes seconds where the others take
 * milliseconds.
 */
constexpr int kBin_ms = 50;
constexpr double kBin_s = 0.05;
constexpr double kShortestInput_s = 0.05;  // what is shorter is copied

}  // namespace level_engine

using level_engine::kBin_ms;
using level_engine::kBin_s;
using level_engine::kShortestInput_s;
