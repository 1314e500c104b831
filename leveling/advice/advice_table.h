#pragma once

#include <string>
#include <vector>

namespace quorvane {

/**
 * What a finding means to people. The texts are ours and plain: no markup. clause may hold {value},
 * {unit}, {detail}, and {against} for a value that is a distance: "12.0 dB under".
 */
struct Advice {
    const char* code;
    const char* title;    // "Clipped before leveling"
    int decimals;         // of {value}
    const char* clause;   // behind "but:": "{value} % of it was clipped before leveling"
    const char* meaning;  // what it is
    const char* why;      // why it matters to listeners
    // What can be done with the recording as it is: on a command line, in the window, and in a page
    // that was sent to a person without the program. Empty: there is nothing to do.
    const char* command_line;
    const char* window;
    const char* page;
    const char* next_time;  // before the next recording
};

/** Every code, in the order in which they are listed. */
const std::vector<Advice>& advice_table();

/** Null for a code that a later version wrote. */
const Advice* find_advice(const std::string& code);

std::vector<std::string> advice_codes();

}  // namespace quorvane
