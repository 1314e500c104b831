#pragma once

/** The version of the whole program. The build reads it from this line. */
constexpr const char* kVersion = "3.0.0";
