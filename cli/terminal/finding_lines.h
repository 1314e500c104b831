#pragma once

#include "cli/terminal/screen.h"
#include "leveling/facts/facts_list.h"

namespace quorvane {

/**
 * "warning: talk.wav: the right side is silent (quorvane --explain side-silent)", the gravest
 * first. A single file's lines go without its name and give the places and the advice; of many
 * files the first of each code are listed, and the number of the others.
 */
void print_findings(const FactsList& files, Screen& screen);

}  // namespace quorvane
