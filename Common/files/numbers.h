#pragma once

#include <cstddef>
#include <istream>

namespace level_engine {

/*
 * Converts numbers to and from text in a tenth of the time of streams and printf, if the standard
 * library has fast conversions. Both are exact: the characters are those of printf in the C locale,
 * the bits those of the nearest double.
 */

/** The same as `is >> value`: the result, the flags and what is left in the stream. */
bool read_number(std::istream& is, double& value);

enum class Notation { kFixed, kGeneral };

/**
 * Writes value as printf's %.*f or %.*g, without a terminating 0, and returns how many characters
 * that are; 0 when they are more than size.
 */
std::size_t write_number(char* text, std::size_t size, Notation notation, int digits, double value);

}  // namespace level_engine

using level_engine::Notation;
using level_engine::read_number;
using level_engine::write_number;
