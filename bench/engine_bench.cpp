/*
 * What two parts of the engine gain over the plain way of doing the same. Each benchmark also times
 * the plain way in the same run and reports how many times faster the engine is ("ratio").
 */

#include <benchmark/benchmark.h>
#include <sndfile.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <sstream>
#include <vector>

#include "Common/calculate_gains/CalcRMS.h"
#include "Common/segment/MakeCalculator.h"
#include "Common/segment/coverings.h"

namespace {

template <class Work>
double seconds(const Work& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/** Times engine under the benchmark's clock, plain once, and reports their ratio. */
template <class Engine, class Plain>
void compare(benchmark::State& state, const Engine& engine, const Plain& plain) {
    double engine_s = 0.0;
    for (auto _ : state) {
        engine_s += seconds(engine);
    }
    state.counters["ratio"] = seconds(plain) / (engine_s / static_cast<double>(state.iterations()));
}

/** Thirty breakpoint counts over a chunk of levels, segments of 20 bins and more. */
void BestSplit(benchmark::State& state) {
    constexpr int kShortest = 20;
    constexpr int kCounts = 30;
    const std::uint16_t n = static_cast<std::uint16_t>(state.range(0));
    std::stringstream values;
    for (int i = 0; i < n; ++i) {
        values << -25.0 + 8.0 * std::sin(i * 0.07) + std::sin(i * 1.3) << "\n";
    }
    const segment::CCostCalculatorSSD0 calculator(&values, "values", n, kShortest,
                                                  new segment::SumCostCombiner);
    const auto engine = [&] {
        segment::Coverings coverings(n, kCounts);
        coverings.begin(calculator, calculator.kernels().front());
        while (coverings.last_known() < kCounts) {
            coverings.search_more(kCounts);
        }
        benchmark::DoNotOptimize(coverings.least_cost(kCounts));
    };
    const auto plain = [&] {
        std::vector<double> costs(n);
        std::vector<std::uint16_t> best(n);
        for (std::uint16_t j = kShortest - 1; j < n; ++j) {
            costs[j] = calculator.CostOneSegment(0, j);
        }
        for (std::uint16_t k = 1; k <= kCounts; ++k) {
            for (int j = n - 1; j >= (k + 1) * kShortest - 1; --j) {
                calculator.Cost(costs.data(), best.data(), static_cast<std::uint16_t>(j), k);
            }
        }
        benchmark::DoNotOptimize(costs.data());
    };
    compare(state, engine, plain);
}

BENCHMARK(BestSplit)->Arg(600)->Arg(2400);

/** The gate of the gain step over a decaying tone, where a running maximum falls at every sample.
 */
void GatedRms(benchmark::State& state) {
    constexpr std::size_t kBuffer = 442;  // 5 ms of stereo at 44.1 kHz
    constexpr double kThreshold = 0.006;
    const std::string path =
        (boost::filesystem::temp_directory_path() / boost::filesystem::unique_path()).string();
    SF_INFO info{};
    info.format = SF_FORMAT_WAV | SF_FORMAT_DOUBLE;
    info.channels = 1;
    info.samplerate = 44100;
    std::vector<double> samples(441000);
    double level = 1.0;
    for (double& sample : samples) {
        sample = level;
        level *= 0.99999;
    }
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    sf_write_double(file, samples.data(), static_cast<sf_count_t>(samples.size()));
    sf_close(file);
    const SoundHandle handle = open_sound_for_reading(path, info);

    const auto engine = [&] {
        sf_seek(handle.get(), 0, SEEK_SET);
        benchmark::DoNotOptimize(
            calculate_gains::CalcRMS_GW(handle, info.frames, kBuffer, kThreshold));
    };
    const auto plain = [&] {
        std::vector<double> last(kBuffer, 0.0);
        double maximum = 0.0;
        double sum = 0.0;
        std::size_t slot = 0;
        for (const double sample : samples) {
            const double outgoing = last[slot];
            last[slot] = std::fabs(sample);
            slot = slot + 1 == kBuffer ? 0 : slot + 1;
            maximum = outgoing < maximum ? std::max(maximum, std::fabs(sample))
                                         : *std::max_element(last.begin(), last.end());
            sum += maximum > kThreshold ? sample * sample : 0.0;
        }
        benchmark::DoNotOptimize(sum);
    };
    compare(state, engine, plain);
    std::remove(path.c_str());
}

BENCHMARK(GatedRms);

}  // namespace

BENCHMARK_MAIN();
