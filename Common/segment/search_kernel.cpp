#include "Common/segment/search_kernel.h"

#include <cstring>
#include <limits>

#include "Common/segment/CostCalculatorMSD0.h"
#include "Common/segment/CostCalculatorSSD0.h"

// The bodies below are inlined into one function for each width of vector, which names its
// instruction set; their own code is never called.
#define QUORVANE_INLINE inline __attribute__((always_inline))

/*
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

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/** kWidth doubles side by side. (A using declaration would drop the attribute.) */
template <int kWidth>
struct Vector {
    typedef double Lanes __attribute__((vector_size(kWidth * sizeof(double))));  // NOLINT
};

/** a becomes b where b is lower; a b that is not a number is passed over. */
template <class Value>
QUORVANE_INLINE void take_lower(Value& a, const Value& b) {
    a = b < a ? b : a;
}

template <class Formula>
QUORVANE_INLINE bool fill_costs(const SearchKernel::Sums& from,
                                double lowest,
                                double* costs,
                                int count) {
    long long too_low = 0;
    for (int i = 0; i < count; ++i) {
        const double cost = Formula::cost(from.sum_j - from.sums[i],
                                          from.squares_j - from.squares[i], from.lengths[i]);
        // No branch in here: a loop with a way out in its middle does not become vectors.
        too_low |= cost < lowest ? 1 : 0;
        costs[i] = cost > 0.0 ? cost : 0.0;
    }
    return too_low == 0;
}

/** All rows go along together: a cost is loaded once for kRows totals, whose minima do not wait
 * for each other. */
template <class Combiner, int kWidth>
QUORVANE_INLINE void find_least(const double* const* rows,
                                const double* costs,
                                int count,
                                double* least) {
    using Lanes = typename Vector<kWidth>::Lanes;
    constexpr int kRows = SearchKernel::kRows;
    Lanes lanes[kRows];
    for (int row = 0; row < kRows; ++row) {
        lanes[row] = Lanes{} + kInfinity;
    }
    // memcpy reads a vector from wherever it stands; it costs no call.
    int i = 0;
    for (; i + kWidth <= count; i += kWidth) {
        Lanes cost;
        std::memcpy(&cost, costs + i, sizeof cost);
        for (int row = 0; row < kRows; ++row) {
            Lanes total;
            std::memcpy(&total, rows[row] + i, sizeof total);
            Combiner::add(total, cost);
            take_lower(lanes[row], total);
        }
    }
    for (int row = 0; row < kRows; ++row) {
        // A minimum is the same in whatever order its terms come: the lanes are merged at the end,
        // then the rest is added that fills no vector.
        double in_lanes[kWidth];
        std::memcpy(in_lanes, &lanes[row], sizeof in_lanes);
        least[row] = kInfinity;
        for (const double in_lane : in_lanes) {
            take_lower(least[row], in_lane);
        }
        for (int rest = i; rest < count; ++rest) {
            double total = rows[row][rest];
            Combiner::add(total, costs[rest]);
            take_lower(least[row], total);
        }
    }
}

template <class Combiner>
QUORVANE_INLINE int find_first(
    const double* row, const double* costs, int first, int end, double wanted) {
    const auto is_wanted = [&](int i) {
        double total = row[i];
        Combiner::add(total, costs[i]);
        return total == wanted ? 1LL : 0LL;
    };
    // Sixteen at a time are compared without a branch; where one fits, the first is looked for.
    constexpr int kAtOnce = 16;
    int i = first;
    for (long long found = 0; i + kAtOnce <= end; i += kAtOnce) {
        for (int k = 0; k < kAtOnce; ++k) {
            found |= is_wanted(i + k);
        }
        if (found != 0) {
            break;
        }
    }
    while (i < end && is_wanted(i) == 0) {
        ++i;
    }
    return i;
}

/** Two doubles side by side, which every processor we build for has. */
template <class Formula, class Combiner>
struct Narrow {
    static bool costs(const SearchKernel::Sums& from, double lowest, double* costs, int count) {
        return fill_costs<Formula>(from, lowest, costs, count);
    }

    static void least(const double* const* rows, const double* costs, int count, double* least) {
        find_least<Combiner, 2>(rows, costs, count, least);
    }

    static int find(const double* row, const double* costs, int first, int end, double wanted) {
        return find_first<Combiner>(row, costs, first, end, wanted);
    }
};

#ifdef __x86_64__

template <class Formula, class Combiner>
struct Avx2 {
    __attribute__((target("avx2"))) static bool costs(const SearchKernel::Sums& from,
                                                      double lowest,
                                                      double* costs,
                                                      int count) {
        return fill_costs<Formula>(from, lowest, costs, count);
    }

    __attribute__((target("avx2"))) static void least(const double* const* rows,
                                                      const double* costs,
                                                      int count,
                                                      double* least) {
        find_least<Combiner, 4>(rows, costs, count, least);
    }

    __attribute__((target("avx2"))) static int find(
        const double* row, const double* costs, int first, int end, double wanted) {
        return find_first<Combiner>(row, costs, first, end, wanted);
    }
};

/** Only the minima: the costs wait for their division, which is no faster at this width. */
template <class Formula, class Combiner>
struct Avx512 {
    __attribute__((target("avx512f"))) static void least(const double* const* rows,
                                                         const double* costs,
                                                         int count,
                                                         double* least) {
        find_least<Combiner, 8>(rows, costs, count, least);
    }
};

#endif

template <class Formula, class Combiner>
std::vector<SearchKernel> supported_kernels() {
    std::vector<SearchKernel> kernels;
#ifdef __x86_64__
    using Wide = Avx2<Formula, Combiner>;
    __builtin_cpu_init();
    // The widest first: the calculators take the front, the tests try them all.
    if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("avx512f")) {
        kernels.push_back({Wide::costs, Avx512<Formula, Combiner>::least, Wide::find});
    }
    if (__builtin_cpu_supports("avx2")) {
        kernels.push_back({Wide::costs, Wide::least, Wide::find});
    }
#endif
    using Basic = Narrow<Formula, Combiner>;
    kernels.push_back({Basic::costs, Basic::least, Basic::find});
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
