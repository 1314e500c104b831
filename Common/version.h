#pragma once

/**
 * The version of the whole program: packages, `quorvane --version`, JSON, reports and manual pages.
 * The build reads it from this line.
 */
constexpr const char* kVersion = "4.0.0";

/** The version that the engine's own command line shows; it identifies the engine's arithmetic. */
constexpr const char* kEngineVersion = "3.0.0";
