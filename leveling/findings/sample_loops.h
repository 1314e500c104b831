#pragma once

#include <cstddef>

/*
 * The loops over all samples that a profile takes, each compiled for wide vectors, too. Sums stand
 * in eight lanes, so that their order is the same in all.
 */

namespace quorvane {

/** What a piece of one channel holds; the step is the largest one between neighbours. */
struct PieceSums {
    float sum, squares, highest, lowest, step;
};

/** samples[-1] is read, too. */
PieceSums sums_of(const float* samples, std::size_t count);

/** The sum of left times right. */
float product_of(const float* left, const float* right, std::size_t count);

/**
 * The logarithm to the base of 2, linear between powers of two, plus a constant: the bits of a
 * float as an integer (J. N. Mitchell, "Computer multiplication and division using binary
 * logarithms", IRE Transactions on Electronic Computers 11 (1962)).
 */
void to_logs(const float* powers, std::size_t count, float* logs);

constexpr std::size_t kAround = 6;  // values to each side that lines stand out of

/** How far each value, from logs[kAround] on, is over the mean of those around it. */
void take_lines(const float* logs, std::size_t count, float* lines);

/** The two channels of interleaved frames. */
void split(const float* frames, std::size_t count, float* left, float* right);

}  // namespace quorvane
