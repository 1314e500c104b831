#pragma once

#include <cstdint>
#include <vector>

namespace segment {

/**
 * The inner part of the dynamic programme, compiled for the widest vectors that the processor has.
 * Wide or narrow, every cost and every total is the same expression on the same doubles, and they
 * are compared in the same order: all versions give the same bits.
 */
struct SearchKernel {
    /** Breakpoint counts that share a vector, or several narrow ones. */
    static constexpr int kLanes = 8;

    /** How many lanes a batch has at most. */
    static constexpr int kMostLanes = 3 * kLanes;

    /** Starts of a last segment that are passed over together. */
    static constexpr int kBlock = 16;

    /**
     * One chunk and a few breakpoint counts. The caller fills it in once and passes it
     * for one j after another, from the lowest to the highest that has room for the first count.
     */
    struct Batch {
        // The chunk. sums, squares: prefix sums of its values and of their squares.
        int chunk_size;
        int shortest;  // values of a segment
        const double* sums;
        const double* squares;
        const double* lengths;  // lengths[t] is chunk_size - t
        double lowest_cost;     // how far below 0 rounding can take a segment's cost; not above 0
        double margin;          // see search_kernel.cpp; infinity: no start may be passed over

        // table[j * width + r] is the least cost of covering 0..j with first_k + r breakpoints,
        // infinity where they do not fit: lane 0 comes filled in, lanes 1 to count are searched.
        // best[r][j] becomes the end of the segment before the last one for lane r + 1.
        int first_k;
        int count;
        int width;  // a multiple of kLanes, more than count
        double* table;
        std::uint16_t* const* best;

        // Scratch, kept from one j to the next. `blocks` holds a vector more than the chunk's.
        int blocks;
        int closed_blocks;  // those with an entry in `lowest`; 0 at the beginning
        double* lowest;     // lowest[r * blocks + b]: see search_kernel.cpp
        double* end_sums;   // sums and squares at the blocks' last values, blocks of each
        double* end_squares;
        double* end_costs;  // of a segment from behind there to j, less the margin
        long long* needed;  // bit g: for the lanes of group g
        double* costs;      // costs[i]: what the segment i + 1..j costs; chunk_size values
        int* latest;        // for each lane the place found for the j before; at first the only one
    };

    /**
     * Finds the least costs and their places for one j. Of equally good places the first one is
     * taken; a total that is not a number is passed over. False when a segment's cost is below
     * lowest_cost, which rounding cannot explain.
     */
    bool (*find_best)(Batch& batch, int j);
};

/**
 * The versions that this processor can run, the widest first, of one formula and its combiner: see
 * CostCalculatorSSD0.h, CostCalculatorMSD0.h.
 */
template <class Formula, class Combiner>
const std::vector<SearchKernel>& search_kernels();

}  // namespace segment
