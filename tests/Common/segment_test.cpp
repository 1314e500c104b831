#include "Common/segment/segment.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <random>
#include <sstream>

#include "Common/reporting/cancel.h"
#include "Common/segment/CommandLine.h"
#include "Common/segment/MakeCalculator.h"
#include "Common/segment/coverings.h"
#include "Common/segment/search_kernel.h"
#include "Common/segment/segment_util.h"
#include "tests/support/engine_switches.h"
#include "tests/support/fixtures.h"

namespace {

using testing::ElementsAre;

struct Segmentation {
    int result = -1;
    std::vector<double> fit;
    std::vector<unsigned> breakpoints;
    std::string messages;
};

std::string text_of(const std::vector<double>& values) {
    std::ostringstream text;
    for (const double value : values) {
        text << value << "\n";
    }
    return text.str();
}

Segmentation segment_text(const std::string& text, const std::vector<std::string>& options) {
    ProgressRecorder progress;
    const CapturedOutput captured;
    Segmentation found;
    std::stringstream fit;
    std::stringstream breaks;
    std::vector<std::string> words{"segment"};
    words.insert(words.end(), options.begin(), options.end());
    found.result = call(
        [&](int argc, const char** argv) { return segment::_tmain(argc, argv, text, fit, breaks); },
        words);
    for (double value = 0; fit >> value;) {
        found.fit.push_back(value);
    }
    for (unsigned value = 0; breaks >> value;) {
        found.breakpoints.push_back(value);
    }
    found.messages = captured.out();
    return found;
}

Segmentation segment_values(const std::vector<double>& values,
                            const std::vector<std::string>& options) {
    return segment_text(text_of(values), options);
}

/** n values of level, with the rest appended. */
std::vector<double> steps(const std::vector<std::pair<int, double>>& stairs) {
    std::vector<double> values;
    for (const auto& [count, level] : stairs) {
        values.insert(values.end(), static_cast<std::size_t>(count), level);
    }
    return values;
}

TEST(Segment, AStaircaseGivesBackItsOwnSteps) {
    const std::vector<double> values = steps({{30, -20}, {25, -32}, {40, -18}, {30, -27}});
    for (const char* cost : {"SSD0", "MSD0"}) {
        const Segmentation found = segment_values(values, {"-t", "0.001", "-c", cost});
        EXPECT_THAT(found.breakpoints, ElementsAre(30, 55, 95)) << cost;
        EXPECT_EQ(values, found.fit) << cost;
    }
}

TEST(Segment, SteadyInputHasNoBreakpointsHoweverItsSumsRound) {
    for (const double level : {-200.0, -20.1, -23.4567, 0.1}) {
        const std::vector<double> values = steps({{2000, level}});
        const Segmentation found = segment_values(values, {"-t", "0.0001", "-m", "30"});
        EXPECT_EQ(0, found.result);
        EXPECT_TRUE(found.breakpoints.empty()) << level;
        EXPECT_EQ(values, found.fit) << level;
    }
}

/** Cost of a segmentation straight from the definition: deviations from each segment's mean. */
double cost_of(const std::vector<double>& values,
               const std::vector<unsigned>& breakpoints,
               bool worst_variance) {
    double total = 0.0;
    std::size_t start = 0;
    for (std::size_t b = 0; b <= breakpoints.size(); ++b) {
        const std::size_t end = b < breakpoints.size() ? breakpoints[b] : values.size();
        const double length = static_cast<double>(end - start);
        double mean = 0.0;
        for (std::size_t i = start; i < end; ++i) {
            mean += values[i] / length;
        }
        double cost = 0.0;
        for (std::size_t i = start; i < end; ++i) {
            cost += (values[i] - mean) * (values[i] - mean);
        }
        total = worst_variance ? std::max(total, cost / length) : total + cost;
        start = end;
    }
    return total;
}

/** The least cost of any two breakpoints that leave segments of at least m values. */
double least_cost(const std::vector<double>& values, unsigned m, bool worst_variance) {
    double least = 1e300;
    const unsigned n = static_cast<unsigned>(values.size());
    for (unsigned a = m; a + 2 * m <= n; ++a) {
        for (unsigned b = a + m; b + m <= n; ++b) {
            least = std::min(least, cost_of(values, {a, b}, worst_variance));
        }
    }
    return least;
}

TEST(Segment, AgreesWithTryingEverySegmentation) {
    std::mt19937 random(7);
    for (int round = 0; round < 60; ++round) {
        std::vector<double> values;
        for (unsigned i = 0; i < 12 + random() % 9; ++i) {
            values.push_back(-40.0 + static_cast<double>(random() % 200) / 8.0);
        }
        const unsigned m = 1 + static_cast<unsigned>(random() % 3);
        const bool worst = round % 2 == 1;
        const Segmentation found = segment_values(
            values, {"-m", "2", "-s", std::to_string(m), "-c", worst ? "MSD0" : "SSD0"});
        ASSERT_EQ(2u, found.breakpoints.size());
        EXPECT_GE(found.breakpoints[0], m);
        EXPECT_GE(found.breakpoints[1] - found.breakpoints[0], m);
        EXPECT_GE(values.size() - found.breakpoints[1], m);
        EXPECT_NEAR(least_cost(values, m, worst), cost_of(values, found.breakpoints, worst), 1e-9);
    }
}

/** The recursion as it is defined, one candidate after another: the least cost, the smallest i. */
std::vector<unsigned> plain_search(const segment::CCostCalculatorSD& costs,
                                   int m,
                                   int breakpoints) {
    const int n = costs.GetChunkSize();
    const auto index = [](int i) { return static_cast<std::uint16_t>(i); };
    std::vector<std::vector<int>> best(breakpoints + 1, std::vector<int>(n, -1));
    std::vector<double> least(n);
    for (int j = m - 1; j < n; ++j) {
        least[j] = costs.CostOneSegment(0, index(j));
    }
    for (int k = 1; k <= breakpoints; ++k) {
        for (int j = n - 1; j >= (k + 1) * m - 1; --j) {
            double lowest = HUGE_VAL;
            for (int i = k * m - 1; i <= j - m; ++i) {
                const double total =
                    costs.CombineCosts(least[i], costs.CostOneSegment(index(i + 1), index(j)));
                if (total < lowest) {
                    lowest = total;
                    best[k][j] = i;
                }
            }
            least[j] = lowest;
        }
    }
    std::vector<unsigned> found;
    for (int k = breakpoints, j = n - 1; k > 0; --k) {
        j = best[k][j];
        found.insert(found.begin(), static_cast<unsigned>(j + 1));
    }
    return found;
}

TEST(Segment, FindsWhatThePlainSearchFindsInSeriesFullOfTies) {
    std::mt19937 random(11);
    for (int round = 0; round < 40; ++round) {
        const int m = 1 + static_cast<int>(random() % 11);
        const int breakpoints = 1 + static_cast<int>(random() % 27);
        std::vector<double> values;
        for (int i = 0; i < (breakpoints + 1) * m + static_cast<int>(random() % 300); ++i) {
            values.push_back(-20.0 - static_cast<double>(random() % 3));
        }
        const auto n = static_cast<std::uint16_t>(values.size());
        const auto shortest = static_cast<std::uint16_t>(m);
        const bool worst = round % 2 == 1;
        const std::string most = std::to_string(breakpoints);
        std::istringstream text(text_of(values));
        const segment::CMakeCalculator<segment::CCostCalculatorSSD0> sum;
        const segment::CMakeCalculator<segment::CCostCalculatorMSD0> maximum;
        const std::unique_ptr<segment::CCostCalculatorSD> costs(
            worst ? maximum.make(&text, "values", n, shortest)
                  : sum.make(&text, "values", n, shortest));
        SCOPED_TRACE("m " + std::to_string(m) + ", breakpoints " + most);
        EXPECT_EQ(plain_search(*costs, m, breakpoints),
                  segment_values(values, {"-t", "-1", "-m", most, "-s", std::to_string(m), "-c",
                                          worst ? "MSD0" : "SSD0"})
                      .breakpoints);
    }
}

/** Compares all least costs and places of a kernel with those of the calculator's plain step. */
void expect_plain_steps(const segment::CCostCalculatorSD& costs,
                        const segment::SearchKernel& kernel,
                        int shortest,
                        int breakpoints) {
    const std::uint16_t n = costs.GetChunkSize();
    segment::Coverings coverings(n, static_cast<std::uint16_t>(breakpoints));
    coverings.begin(costs, kernel);
    std::vector<double> least(n);
    for (int j = shortest - 1; j < n; ++j) {
        least[j] = costs.CostOneSegment(0, static_cast<std::uint16_t>(j));
    }
    std::vector<std::uint16_t> places(n);
    for (std::uint16_t k = 1; k <= breakpoints; ++k) {
        if (k > coverings.last_known()) {
            coverings.search_more(breakpoints);
        }
        for (int j = n - 1; j >= (k + 1) * shortest - 1; --j) {
            const auto index = static_cast<std::uint16_t>(j);
            costs.Cost(least.data(), places.data(), index, k);
            ASSERT_EQ(places[j], coverings.end_before_last(k, index)) << k << " " << j;
        }
        ASSERT_EQ(least[n - 1], coverings.least_cost(k)) << k;
    }
}

/** Series in which different parts of the search decide; each of n values. */
std::vector<std::vector<double>> telling_series(int n) {
    std::mt19937 random(3);
    std::vector<std::vector<double>> series(8, std::vector<double>(n));
    for (int i = 0; i < n; ++i) {
        const double noise = static_cast<double>(random() % 1000) / 500.0 - 1.0;
        const double stair = -20.0 - 4.0 * ((i / 70 * 5) % 3);
        series[0][i] = stair + noise;       // like speech: most blocks are passed over
        series[1][i] = 8.0 * noise;         // few are
        series[2][i] = i % 2 == 0 ? 0 : 9;  // none is: all places are as good
        series[3][i] = stair;               // whole blocks cost nothing
        series[4][i] = -23.4567;            // costs are nothing but rounding
        series[5][i] = 1e9 + stair;         // deviations are lost in the sums' rounding
        series[6][i] = 1e149 * noise;       // squares of sums are beyond all numbers
        series[7][i] = 1e-155 * stair;      // squares are below the least normal number
    }
    return series;
}

TEST(Segment, ACancelEndsTheSearchOfAChunk) {
    constexpr std::uint16_t kCount = 300;
    std::istringstream text(text_of(std::vector<double>(kCount, 0.5)));
    const segment::CCostCalculatorSSD0 costs(&text, "values", kCount, 1,
                                             new segment::SumCostCombiner);
    segment::Coverings coverings(kCount, 2);
    coverings.begin(costs, *costs.kernels().begin());
    const EngineSwitches switches;
    levelRequestCancel();
    EXPECT_THROW(coverings.search_more(2), ss_cancel_exception);
}

TEST(SearchKernel, EveryWidthFindsTheBitsOfThePlainStep) {
    constexpr std::uint16_t kCount = 300;
    constexpr int kBreakpoints = 12;
    for (const std::vector<double>& values : telling_series(kCount)) {
        for (const int shortest : {1, 18}) {
            SCOPED_TRACE(testing::PrintToString(values[1]) + " " + std::to_string(shortest));
            std::ostringstream text;
            text.precision(17);
            for (const double value : values) {
                text << value << "\n";
            }
            std::istringstream twice(text.str() + text.str());
            const auto m = static_cast<std::uint16_t>(shortest);
            const segment::CCostCalculatorSSD0 ssd(&twice, "values", kCount, m,
                                                   new segment::SumCostCombiner);
            const segment::CCostCalculatorMSD0 msd(&twice, "values", kCount, m,
                                                   new segment::MaxCostCombiner);
            const std::initializer_list<const segment::CCostCalculatorSD*> calculators{&ssd, &msd};
            for (const segment::CCostCalculatorSD* const costs : calculators) {
                for (const segment::SearchKernel& kernel : costs->kernels()) {
                    expect_plain_steps(*costs, kernel, shortest, kBreakpoints);
                }
            }
        }
    }
}

TEST(Segment, OfEquallyGoodBreakpointsTheEarliestIsTaken) {
    // 0 0 1 0 0: cutting before or after the 1 costs the same, 2/3 for the part that keeps it.
    EXPECT_THAT(segment_values({0, 0, 1, 0, 0}, {"-m", "1"}).breakpoints, ElementsAre(2));
}

TEST(Segment, StopsAtTheFirstFitWithinTheTolerance) {
    // Two levels 2 apart: without a breakpoint the RMS deviation is 1, with one it is 0.
    const std::vector<double> values = steps({{50, -20}, {50, -22}});
    EXPECT_TRUE(segment_values(values, {"-t", "1"}).breakpoints.empty());
    EXPECT_THAT(segment_values(values, {"-t", "0.99"}).breakpoints, ElementsAre(50));
    // MSD0 looks at the worst segment: a deviation in a short one is not averaged away. One
    // breakpoint at 84 leaves 4 of 84 values 2 off: sqrt(4 * 4/84 * 80/84) = 0.426.
    const std::vector<double> end = steps({{80, -20}, {4, -22}, {4, -24}});
    EXPECT_TRUE(segment_values(end, {"-t", "1.1", "-c", "SSD0"}).breakpoints.empty());
    EXPECT_THAT(segment_values(end, {"-t", "0.42", "-c", "MSD0"}).breakpoints, ElementsAre(80, 84));
}

TEST(Segment, ChunksAreSegmentedByThemselvesAndStartASegmentEach) {
    const Segmentation found = segment_values(steps({{70, -20}, {60, -30}, {71, -25}}),
                                              {"-k", "100", "-t", "0.01", "-s", "2"});
    // Chunks 0..99, 100..199 and the one value 200, which is shorter than a segment: left out.
    EXPECT_THAT(found.breakpoints, ElementsAre(70, 100, 130));
    EXPECT_EQ(200u, found.fit.size());
    EXPECT_EQ(0, found.result);

    // The remainder gets a most of breakpoints of its own: 10 values hold 5 segments of 2.
    std::vector<double> zigzag;
    for (int i = 0; i < 30; ++i) {
        zigzag.push_back(i % 2 == 0 ? -20 : -30);
    }
    const Segmentation rest = segment_values(zigzag, {"-k", "20", "-m", "9", "-s", "2"});
    EXPECT_EQ(9u + 1u + 4u, rest.breakpoints.size());
}

TEST(Segment, FailuresAreLogged) {
    struct Row {
        const char* name;
        std::string text;
        std::vector<std::string> options;
        const char* message;
        int result;
    };

    const Row rows[] = {
        {"nothing", "", {"-t", "1"}, "Error: there are no values to segment\n", 1},
        {"cost", "1\n2\n", {"-t", "1", "-c", "ssd0"}, "error: unknown cost function \"ssd0\"\n", 1},
        {"MSD0",
         "1\n2\n3\n4\n",
         {"-t", "1", "-c", "MSD0", "-s", "2"},
         "***Warning: using MSD0 with minimum segment length > 1 is not recommended.***\n",
         0},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        const Segmentation found = segment_text(row.text, row.options);
        EXPECT_EQ(row.result, found.result);
        EXPECT_EQ(row.message, found.messages);
    }
    const Segmentation cut = segment_text("1\n2\n3", {"-t", "1"});
    EXPECT_EQ(1, cut.result);
    EXPECT_THAT(cut.messages,
                testing::MatchesRegex("readSums -- Error reading _string_ \\(line [0-9]+ in "
                                      "Common/segment/segment_util\\)\n"));
}

TEST(CostCalculator, CostsAndFitsFollowTheirFormulas) {
    std::istringstream values("1\n3\n5\n7\n");
    const segment::CCostCalculatorSSD0 ssd(&values, "values", 4, 1, new segment::SumCostCombiner);
    EXPECT_EQ(20.0, ssd.CostOneSegment(0, 3));  // mean 4: 9 + 1 + 1 + 9
    EXPECT_EQ(2.0, ssd.CostOneSegment(1, 2));   // mean 4: 1 + 1
    EXPECT_EQ(4.0, ssd.GetFitValue(1, 2));
    EXPECT_EQ(std::sqrt(20.0 / 4), ssd.NormalizedCost(20.0));
    EXPECT_EQ(5.0, ssd.CombineCosts(2.0, 3.0));

    values.clear();
    values.seekg(0);
    const segment::CCostCalculatorMSD0 msd(&values, "values", 4, 1, new segment::MaxCostCombiner);
    EXPECT_EQ(5.0, msd.CostOneSegment(0, 3));
    EXPECT_EQ(3.0, msd.NormalizedCost(9.0));
    EXPECT_EQ(3.0, msd.CombineCosts(2.0, 3.0));
}

TEST(CostCalculatorDeathTest, ACostBelowRoundingEndsTheProcess) {
    std::istringstream values("1\n3\n");
    const segment::CCostCalculatorSSD0 ssd(&values, "values", 2, 1, new segment::SumCostCombiner);
    EXPECT_DEATH(ssd.NormalizedCost(-1.0), "dCost >= 0.0");
    segment::CCLArgs empty;
    EXPECT_DEATH(empty.UpdateNMaxBreakpoints(), "nChunkSize > 0");
}

}  // namespace
