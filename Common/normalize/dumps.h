#pragma once

#include "Common/bins/Bin.h"

/*
 * Places to look into the fit from a debugger or with a dump of one's own. They do nothing.
 */
namespace normalize {

inline void DumpWalls(const double* /*walls*/, int /*count*/) {}

inline void DumpBins(const CBin* /*bins*/, int /*count*/) {}

/** The two points of a secant: gains x, levels y in dB. */
inline void DumpLoopVars(double /*x0*/, double /*x1*/, double /*y0*/, double /*y1*/) {}

inline void DumpRms(const CBin* /*bins*/, int /*count*/) {}

}  // namespace normalize
