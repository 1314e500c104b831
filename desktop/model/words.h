#pragma once

#include <QString>

#include "desktop/model/row.h"

namespace desktop {

/** "42%", as the language writes it. */
QString percent_text(int percent);

/** "Waiting", "Leveling, 42%", "Leveled", "Failed: ..." */
QString state_text(const Row& row);

/** "−27.3 → −18.2 LUFS"; one figure where there is only one, empty where there is none. */
QString loudness_text(const Row& row);

/** "Range 14.2 → 6.3 LU", the same way. */
QString range_text(const Row& row);

/** The whole name, its folder, and what there is to know. */
QString tool_tip(const Row& row);

/** Name, state, loudness and range as one sentence for a screen reader. */
QString accessible_text(const Row& row);

/** "2 minutes left" */
QString time_left_text(double seconds);

/** How many files ended how. */
struct Counts {
    int leveled = 0;
    int copied = 0;
    int up_to_date = 0;
    int skipped = 0;
    int failed = 0;
    int cancelled = 0;

    /** Counts one more file with that outcome. */
    void add(quorvane::Outcome outcome);

    int all() const { return leveled + copied + up_to_date + skipped + failed + cancelled; }
};

/** "3 leveled, 1 failed"; empty when there was nothing. */
QString counts_text(const Counts& counts);

}  // namespace desktop
