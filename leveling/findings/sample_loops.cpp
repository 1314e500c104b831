#include "leveling/findings/sample_loops.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "Common/audio/wide_loops.h"

namespace quorvane {
namespace {

// Eight lanes fix the order of all sums, however wide the registers of a machine are.
QUORVANE_WIDE_LOOP
PieceSums wide_sums_of(const float* samples, std::size_t count) {
    constexpr std::size_t kLanes = 8;
    float sum[kLanes] = {};
    float squares[kLanes] = {};
    float highest[kLanes];
    float lowest[kLanes];
    float step[kLanes] = {};
    // The extremes begin with a sample of the piece.
    for (std::size_t k = 0; k < kLanes; ++k) {
        highest[k] = samples[0];
        lowest[k] = samples[0];
    }
    // step[] holds squares: they need no absolute value, and one root at the end is enough.
    const auto take = [&](std::size_t at, std::size_t k) {
        const float* here = samples + at;
        const float x = here[0];
        const float rise = x - here[-1];
        const float square = rise * rise;
        sum[k] += x;
        squares[k] += x * x;
        highest[k] = x > highest[k] ? x : highest[k];
        lowest[k] = x < lowest[k] ? x : lowest[k];
        step[k] = square > step[k] ? square : step[k];
    };
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (std::size_t k = 0; k < kLanes; ++k) {
            take(i + k, k);
        }
    }
    // The rest, up to seven samples, goes into the first lane.
    for (; i < count; ++i) {
        take(i, 0);
    }
    PieceSums result{0, 0, highest[0], lowest[0], 0};
    for (std::size_t k = 0; k < kLanes; ++k) {
        result.sum += sum[k];
        result.squares += squares[k];
        result.highest = std::max(result.highest, highest[k]);
        result.lowest = std::min(result.lowest, lowest[k]);
        result.step = std::max(result.step, step[k]);
    }
    result.step = std::sqrt(result.step);
    return result;
}

QUORVANE_WIDE_LOOP
float wide_product_of(const float* left, const float* right, std::size_t count) {
    constexpr std::size_t kLanes = 8;
    float sums[kLanes] = {};
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (std::size_t k = 0; k < kLanes; ++k) {
            sums[k] += left[i + k] * right[i + k];
        }
    }
    for (; i < count; ++i) {
        sums[0] += left[i] * right[i];
    }
    float result = 0;
    for (const float sum : sums) {
        result += sum;
    }
    return result;
}

QUORVANE_WIDE_LOOP
void wide_to_logs(const float* powers, std::size_t count, float* logs) {
    // The mantissa of a float has 23 bits, so that doubling a power adds 1.
    constexpr float kPerInteger = 1.0F / (1 << 23);
    for (std::size_t i = 0; i < count; ++i) {
        std::int32_t bits = 0;
        std::memcpy(&bits, powers + i, sizeof bits);
        logs[i] = static_cast<float>(bits) * kPerInteger;
    }
}

QUORVANE_WIDE_LOOP
void wide_take_lines(const float* logs, std::size_t count, float* lines) {
    // The mean is over a value and its neighbours on both sides.
    constexpr float kShare = 1.0F / (2 * kAround + 1);
    for (std::size_t i = 0; i < count; ++i) {
        float sum = 0;
        for (std::size_t k = 0; k <= 2 * kAround; ++k) {
            sum += logs[i + k];
        }
        lines[i] = logs[i + kAround] - kShare * sum;
    }
}

QUORVANE_WIDE_LOOP
void wide_split(const float* frames, std::size_t count, float* left, float* right) {
    for (std::size_t i = 0; i < count; ++i) {
        left[i] = frames[2 * i];
        right[i] = frames[2 * i + 1];
    }
}

}  // namespace

PieceSums sums_of(const float* samples, std::size_t count) {
    return wide_sums_of(samples, count);
}

float product_of(const float* left, const float* right, std::size_t count) {
    return wide_product_of(left, right, count);
}

void to_logs(const float* powers, std::size_t count, float* logs) {
    wide_to_logs(powers, count, logs);
}

void take_lines(const float* logs, std::size_t count, float* lines) {
    wide_take_lines(logs, count, lines);
}

void split(const float* frames, std::size_t count, float* left, float* right) {
    wide_split(frames, count, left, right);
}

}  // namespace quorvane
