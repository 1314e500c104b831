#include "Common/segment/search_kernel.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "Common/segment/CostCalculatorMSD0.h"
#include "Common/segment/CostCalculatorSSD0.h"

// The bodies below are inlined into one function for each width of vector, which names its
// instruction set; their own code is never called.
#define QUORVANE_INLINE inline __attribute__((always_inline))

/*
 * The search for the start of the last segment, for one end j and many breakpoint counts.
 *
 * Most starts are skipped. Let a block hold the starts behind a..e (a segment that starts behind i
 * holds i + 1..j). Sums of squared deviations are superadditive: two neighbouring pieces cost no
 * more apart than together. So for every i in the block
 *
 *     C(k, i) + cost(i + 1..j)  >=  C(k, i) + cost(i + 1..e) + cost(e + 1..j)
 *
 * The least of the first two terms does not depend on j: it is computed once, when the block is
 * complete (`lowest`). With the last term, one for each block, it bounds all totals of the block
 * from below, and closely, since a segment's cost grows mostly with its length. A total that
 * certainly exists bounds the least one from above: that of the place that was found for j - 1. A
 * block whose lower bound is above it holds neither the least total nor an equal one, and is
 * skipped. Of the starts in recorded speech 2 % remain.
 *
 * The bound holds for exact numbers. Computed costs are off by up to `lowest_cost` each, three of
 * them take part, and the additions are off by less than one more: the margin is four. It is
 * infinite, so every block is searched, for a formula without that property and for values so
 * large that a cost could overflow.
 *
 * One source for three widths. GCC and Clang compile a function for another instruction set when an
 * attribute names it, but only that function and what is inlined into it: hence the bodies that are
 * always inlined and the thin functions around them. The widths are vector extensions of both
 * compilers, not intrinsics, so the narrow version is also what other processors get.
 *
 * No version may fuse a multiplication and an addition, which would round once in place of twice.
 * The widest instruction set could; the build forbids it (-ffp-contract=off).
 */
namespace segment {

namespace {

using Batch = SearchKernel::Batch;

constexpr int kLanes = SearchKernel::kLanes;
constexpr int kBlock = SearchKernel::kBlock;
constexpr double kInfinity = std::numeric_limits<double>::infinity();

/** For each lane the least total so far, its place, and a total that exists. */
struct Found {
    double totals[SearchKernel::kMostLanes];
    double places[SearchKernel::kMostLanes];
    double existing[SearchKernel::kMostLanes];
};

/** kWidth doubles side by side. (A using declaration would drop the attribute.) */
template <int kWidth>
struct Vector {
    typedef double Lanes __attribute__((vector_size(kWidth * sizeof(double))));  // NOLINT
};

// memcpy reads and writes a vector at any address; it costs no call. Vectors are not passed by
// value, which would depend on the instruction set.
template <class Lanes>
QUORVANE_INLINE void load(Lanes& lanes, const double* from) {
    std::memcpy(&lanes, from, sizeof lanes);
}

template <class Lanes>
QUORVANE_INLINE void store(const Lanes& lanes, double* to) {
    std::memcpy(to, &lanes, sizeof lanes);
}

/** The least costs of covering 0..j, lane by lane. */
QUORVANE_INLINE double* row_of(const Batch& batch, int j) {
    return batch.table + static_cast<std::ptrdiff_t>(j) * batch.width;
}

/** The lower bounds of a lane, block by block. */
QUORVANE_INLINE double* lowest_of(const Batch& batch, int lane) {
    return batch.lowest + static_cast<std::ptrdiff_t>(lane) * batch.blocks;
}

/** Rounding may take a cost a little below 0, and one of infinite sums may be no number: both
 * become 0. */
QUORVANE_INLINE double not_below_zero(double cost) {
    return cost > 0.0 ? cost : 0.0;
}

/** costs[t] becomes what the segment from behind first + t to j costs, for count values of t. */
template <class Formula>
QUORVANE_INLINE bool fill_costs(const Batch& batch, int first, int j, int count, double* costs) {
    const double* const sums = batch.sums + first;
    const double* const squares = batch.squares + first;
    // A row of lengths j - i is a piece of one array, which begins elsewhere for each j.
    const double* const lengths = batch.lengths + (batch.chunk_size - j) + first;
    const double sum_j = batch.sums[j];
    const double squares_j = batch.squares[j];
    const double lowest = batch.lowest_cost;
    long long too_low = 0;
    for (int t = 0; t < count; ++t) {
        const double cost = Formula::cost(sum_j - sums[t], squares_j - squares[t], lengths[t]);
        // No branch in here: a loop with a way out in its middle does not become vectors.
        too_low |= cost < lowest ? 1 : 0;
        costs[t] = not_below_zero(cost);
    }
    return too_low == 0;
}

/** The part of the lower bound that does not depend on j, for a block that has become complete. */
template <class Formula, class Combiner, int kWidth>
QUORVANE_INLINE void close_block(Batch& batch, int block) {
    using Lanes = typename Vector<kWidth>::Lanes;
    const int first = block * kBlock;
    const int last = first + kBlock - 1;
    double costs[kBlock];
    fill_costs<Formula>(batch, first, last, kBlock - 1, costs);
    costs[kBlock - 1] = 0.0;  // of nothing: the start behind the last value
    for (int lane = 0; lane < batch.width; lane += kWidth) {
        Lanes least = Lanes{} + kInfinity;
        for (int t = 0; t < kBlock; ++t) {
            Lanes total;
            load(total, row_of(batch, first + t) + lane);
            Combiner::add(total, Lanes{} + costs[t]);
            least = total < least ? total : least;
        }
        double in_lanes[kWidth];
        store(least, in_lanes);
        for (int t = 0; t < kWidth; ++t) {
            lowest_of(batch, lane + t)[block] = in_lanes[t];
        }
    }
    batch.end_sums[block] = batch.sums[last];
    batch.end_squares[block] = batch.squares[last];
}

/** For each lane a total that exists: the one of the place found for the j before. */
template <class Formula, class Combiner>
QUORVANE_INLINE void existing_totals(const Batch& batch, int j, int fitting, double* totals) {
    for (int lane = 0; lane < fitting; ++lane) {
        const int i = batch.latest[lane];
        double total = row_of(batch, i)[lane];
        Combiner::add(total, not_below_zero(Formula::cost(batch.sums[j] - batch.sums[i],
                                                          batch.squares[j] - batch.squares[i],
                                                          static_cast<double>(j - i))));
        totals[lane] = total;
    }
}

/** Marks the blocks from first to end that may hold a total as low as the existing one of a lane.
 */
template <class Formula, int kWidth>
QUORVANE_INLINE void mark_needed_blocks(
    const Batch& batch, int j, int first, int end, int groups, const double* existing) {
    using Lanes = typename Vector<kWidth>::Lanes;
    const double* const sums = batch.end_sums;
    const double* const squares = batch.end_squares;
    double* const costs = batch.end_costs;
    const double sum_j = batch.sums[j];
    const double squares_j = batch.squares[j];
    const double margin = batch.margin;
    for (int block = first; block < end; ++block) {
        const double length = j - (block * kBlock + kBlock - 1);
        costs[block] =
            Formula::cost(sum_j - sums[block], squares_j - squares[block], length) - margin;
    }
    for (int block = first; block < end; block += kWidth) {
        Lanes rest;
        load(rest, batch.end_costs + block);
        decltype(rest < rest) needed{};  // integers side by side: all bits are set where it holds
        for (int group = 0; group < groups; ++group) {
            decltype(needed) below{};
            for (int lane = group * kLanes; lane < (group + 1) * kLanes; ++lane) {
                Lanes bound;
                load(bound, lowest_of(batch, lane) + block);
                // Not "at most": a bound that is NaN decides nothing, so the block is needed.
                below |= ~(bound + rest > existing[lane]);
            }
            needed |= below & (1LL << group);
        }
        std::memcpy(batch.needed + block, &needed, sizeof needed);
    }
}

/** Compares the totals of one group of lanes for the starts from first to end, in their order. */
template <class Combiner, int kWidth>
QUORVANE_INLINE void take_lower_totals(
    const Batch& batch, int group, int first, int end, Found& found) {
    using Lanes = typename Vector<kWidth>::Lanes;
    constexpr std::ptrdiff_t kStride = kWidth;
    constexpr int kParts = kLanes / kWidth;
    const int lane = group * kLanes;
    Lanes least[kParts];
    Lanes place[kParts];
    for (int part = 0; part < kParts; ++part) {
        load(least[part], &found.totals[lane + part * kWidth]);
        load(place[part], &found.places[lane + part * kWidth]);
    }
    const double* row = row_of(batch, first) + lane;
    for (int i = first; i < end; ++i, row += batch.width) {
        const Lanes cost = Lanes{} + batch.costs[i];
        const Lanes here = Lanes{} + static_cast<double>(i);
        for (int part = 0; part < kParts; ++part) {
            Lanes total;
            load(total, row + part * kStride);
            Combiner::add(total, cost);
            // Strictly lower: of equally good places the first one stays.
            const auto lower = total < least[part];
            least[part] = lower ? total : least[part];
            place[part] = lower ? here : place[part];
        }
    }
    for (int part = 0; part < kParts; ++part) {
        store(least[part], &found.totals[lane + part * kWidth]);
        store(place[part], &found.places[lane + part * kWidth]);
    }
}

/** Computes the costs for the starts from first to end, and their totals for the groups needed. */
template <class Formula, class Combiner, int kWidth>
QUORVANE_INLINE bool look_at(
    const Batch& batch, int j, int first, int end, long long needed, Found& found) {
    const bool costs_hold = fill_costs<Formula>(batch, first, j, end - first, batch.costs + first);
    for (int group = 0; needed >> group != 0; ++group) {
        if ((needed >> group & 1) != 0) {
            take_lower_totals<Combiner, kWidth>(batch, group, first, end, found);
        }
    }
    return costs_hold;
}

template <class Formula, class Combiner, int kWidth>
QUORVANE_INLINE bool look_at_needed_blocks(Batch& batch, int j, int groups, Found& found) {
    // Before `first` no covering by so many segments ends, from `end` on none can be followed by
    // one.
    const int first = (batch.first_k + 1) * batch.shortest - 1;
    const int end = j - batch.shortest + 1;
    const int complete = end / kBlock;
    for (; batch.closed_blocks < complete; ++batch.closed_blocks) {
        close_block<Formula, Combiner, kWidth>(batch, batch.closed_blocks);
    }
    mark_needed_blocks<Formula, kWidth>(batch, j, first / kBlock, complete, groups, found.existing);
    bool costs_hold = true;
    for (int block = first / kBlock; block < complete; ++block) {
        if (batch.needed[block] != 0) {
            costs_hold &= look_at<Formula, Combiner, kWidth>(
                batch, j, std::max(first, block * kBlock), (block + 1) * kBlock,
                batch.needed[block], found);
        }
    }
    // The last block is not complete and has no bound yet.
    return costs_hold & look_at<Formula, Combiner, kWidth>(batch, j,
                                                           std::max(first, complete * kBlock), end,
                                                           (1LL << groups) - 1, found);
}

template <class Formula, class Combiner, int kWidth>
QUORVANE_INLINE bool find_best_places(Batch& batch, int j) {
    // So many of the counts leave room for their segments up to j.
    const int fitting = std::min(batch.count, (j + 1) / batch.shortest - batch.first_k - 1);
    const int groups = (fitting + kLanes - 1) / kLanes;
    Found found;  // NOLINT(cppcoreguidelines-pro-type-member-init): of the lanes in use, below
    for (int lane = 0; lane < groups * kLanes; ++lane) {
        found.totals[lane] = kInfinity;
        // Where all totals are infinite, the first place is as good as any.
        found.places[lane] = (batch.first_k + lane + 1) * batch.shortest - 1;
        // Lanes that do not fit need no block.
        found.existing[lane] = -kInfinity;
    }
    existing_totals<Formula, Combiner>(batch, j, fitting, found.existing);
    const bool costs_hold =
        look_at_needed_blocks<Formula, Combiner, kWidth>(batch, j, groups, found);
    for (int lane = 0; lane < fitting; ++lane) {
        batch.latest[lane] = static_cast<int>(found.places[lane]);
        batch.best[lane][j] = static_cast<std::uint16_t>(batch.latest[lane]);
        row_of(batch, j)[lane + 1] = found.totals[lane];
    }
    return costs_hold;
}

/** Two doubles side by side, which every processor we build for has. */
template <class Formula, class Combiner>
bool find_best_narrow(Batch& batch, int j) {
    return find_best_places<Formula, Combiner, 2>(batch, j);
}

#ifdef __x86_64__

template <class Formula, class Combiner>
__attribute__((target("avx2"))) bool find_best_avx2(Batch& batch, int j) {
    return find_best_places<Formula, Combiner, 4>(batch, j);
}

template <class Formula, class Combiner>
__attribute__((target("avx512f"))) bool find_best_avx512(Batch& batch, int j) {
    return find_best_places<Formula, Combiner, 8>(batch, j);
}

#endif

template <class Formula, class Combiner>
std::vector<SearchKernel> supported_kernels() {
    std::vector<SearchKernel> kernels;
#ifdef __x86_64__
    __builtin_cpu_init();
    // The widest first: the calculators take the front, the tests try them all.
    if (__builtin_cpu_supports("avx512f")) {
        kernels.push_back({find_best_avx512<Formula, Combiner>});
    }
    if (__builtin_cpu_supports("avx2")) {
        kernels.push_back({find_best_avx2<Formula, Combiner>});
    }
#endif
    kernels.push_back({find_best_narrow<Formula, Combiner>});
    return kernels;
}

}  // namespace

template <class Formula, class Combiner>
const std::vector<SearchKernel>& search_kernels() {
    static const std::vector<SearchKernel> kernels = supported_kernels<Formula, Combiner>();
    return kernels;
}

template const std::vector<SearchKernel>& search_kernels<SumOfSquaredDeviations, SumCostCombiner>();
template const std::vector<SearchKernel>& search_kernels<MeanSquaredDeviation, MaxCostCombiner>();

}  // namespace segment
