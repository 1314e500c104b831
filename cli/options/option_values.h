#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "cli/options/settings.h"

/*
 * What the value of an option means. Each function throws UsageError for a wrong value, with a
 * sentence that names the option, what it takes and what was given.
 */

namespace quorvane {

/** "auto", "always" or "never". */
When parse_when(const char* name, const std::string& text);

/** A whole number from 1 to most: 0 of anything would be no work at all, and is a slip. */
std::size_t parse_number(const char* name, const std::string& text, std::size_t most);

/** "I/N", counted from 0 as the task ids of job arrays are. */
Shard parse_shard(const std::string& text);

/** Seconds from 0 to 60, which is how long a run waits for files that are still written. */
double parse_settle(const std::string& text);

/** A number counted from 1, or kEveryAudioStream for "all". */
int parse_audio_stream(const std::string& text);

/** "podcast,spotify": the delivery targets' own words, each once. */
std::vector<std::string> parse_destinations(const std::string& text);

}  // namespace quorvane
