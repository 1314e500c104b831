#pragma once

#include <string>

#include "leveling/facts/facts_list.h"
#include "leveling/facts/run_facts.h"

namespace quorvane {

/**
 * How far the passages of speech lie apart, before and now: "Passages of speech were up to 14 dB
 * apart; now within 1 dB." Empty where the speech was not measured, as in records of version 3.0.
 */
std::string speech_headline(const FileFacts& facts);

/** The same for all files of a run, with the number of files that have no levels of speech. */
std::string speech_headline(const FactsList& files);

/** Rounded to whole dB, as a tenth of one means nothing to a listener; 1 at least. */
long whole_db(double span);

}  // namespace quorvane
