#pragma once

#include "Common/ss_util.h"

namespace level_engine {

/** Runs a step's worker; an ss_error reports itself and gives on_error. All others pass on. */
template <class Result>
Result run_entry(Result (*worker)(int, const char**),
                 int argc,
                 const char** argv,
                 Result on_error) {
    try {
        return worker(argc, argv);
    } catch (const ss_error& failure) {
        failure.report();
        return on_error;
    }
}

}  // namespace level_engine

using level_engine::run_entry;
