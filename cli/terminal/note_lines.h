#pragma once

#include "cli/terminal/screen.h"
#include "leveling/facts/facts_list.h"

namespace quorvane {

/**
 * print_earlier(), then "note: talk.mp4: ...", for the first notes of each kind, and the number of
 * the others.
 */
void print_notes(const FactsList& files, Screen& screen);

/** The number of outputs that are kept though an earlier arithmetic made them; nothing for none. */
void print_earlier(const FactsList& files, Screen& screen);

}  // namespace quorvane
