#pragma once

#include <vector>

namespace segment {

/**
 * The two inner loops of the dynamic programme, compiled for the widest vectors that the processor
 * has. Wide or narrow, every cost and every total is the same expression on the same doubles, and a
 * minimum does not depend on the order of its terms: all versions give the same bits.
 *
 * A chunk's segment costs stand in a row for one j: costs[i] is what the segment i + 1..j costs.
 */
struct SearchKernel {
    /** How many breakpoint counts one call of least_totals looks at. */
    static constexpr int kRows = 8;

    /** What a row of costs is computed from; the arrays hold count values. */
    struct Sums {
        const double* sums;     // prefix sums up to i
        const double* squares;  // prefix sums of the squares up to i
        const double* lengths;  // j - i
        double sum_j;           // the prefix sums up to j
        double squares_j;
    };

    /**
     * Fills a row of costs. Rounding may take one a little below 0, where it becomes 0; false when
     * one is below `lowest`, which rounding cannot explain. A cost that is not a number becomes 0.
     */
    bool (*segment_costs)(const Sums& sums, double lowest, double* costs, int count);

    /**
     * For each of kRows rows, least[row] becomes the least total of rows[row][i] and costs[i] over
     * the count values of i; infinity when there is none. A total that is not a number is passed
     * over.
     */
    void (*least_totals)(const double* const* rows, const double* costs, int count, double* least);

    /** The first i from `first` on whose total is `wanted`; end when there is none. */
    int (*find_total)(const double* row, const double* costs, int first, int end, double wanted);
};

/**
 * The versions that this processor can run, the widest first, of one formula and its combiner: see
 * CostCalculatorSSD0.h, CostCalculatorMSD0.h.
 */
template <class Formula, class Combiner>
const std::vector<SearchKernel>& search_kernels();

}  // namespace segment
