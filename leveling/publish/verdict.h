#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "leveling/advice/finding_words.h"
#include "leveling/facts/destinations.h"
#include "leveling/facts/facts_list.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/** The file's check for one destination: of the output, or of the input when only measured. */
DestinationCheck check_file(const Destination& destination, const FileFacts& facts);

/** True when the file was measured and is what every word of `asked` names. */
bool is_ready(const FileFacts& facts, const std::vector<std::string>& asked);

/**
 * What the user can do about a check that is not met: on a command line "--for podcast", or why
 * nothing in the program helps. Empty where a face has no way to name.
 */
std::string remedy(const DestinationCheck& check, const FileFacts& facts, Face face);

/**
 * One of three: "Ready for podcast.", "Ready for podcast, but: the right side is silent." and "Not
 * ready for podcast: 2.4 LU too quiet." Without words asked for: where it may go as it is, and what
 * was found.
 */
std::string readiness(const FileFacts& facts, const std::vector<std::string>& asked, Face face);

/** The file's result in one or two plain sentences, for a user who reads nothing else. */
std::string verdict(const FileFacts& facts, const std::vector<std::string>& asked, Face face);

/** The same for all files of a run. */
std::string verdict(const FactsList& files, const std::vector<std::string>& asked, Face face);

/**
 * The facts as a program reads them: with the program's name and version, the verdict, and how the
 * file stands to each destination.
 */
nlohmann::ordered_json facts_document(const FileFacts& facts,
                                      const std::vector<std::string>& asked,
                                      Curves curves = Curves::Tell);

}  // namespace quorvane
