#pragma once

/** Step 8: limits how fast the gain rises and makes it fall ahead of a drop. */
namespace smooth_gains {

/**
 * What becomes of a rise that is rounding alone: a ramp leaves the curve a few units of the last
 * place below its target, and the next value would start another one.
 */
enum class FlatRamp {
    kLast,        // it takes its time, and a rise that follows meanwhile waits for its end
    kEndAtTarget  // the curve is set to its target at once
};

/**
 * One pass over count gains: rises take attack values, falls are immediate. A ramp reaches the
 * value that started it in exactly attack steps, never passes the current input and keeps its first
 * target. attack: at least 1, which copies the input. Returns 0, or 1 on an internal fault.
 */
int SmoothGains1(
    const double* in, double* out, unsigned int count, int attack, FlatRamp flat = FlatRamp::kLast);

void ReverseArray(double* values, unsigned long count);

/**
 * Reads one gain per line (lines that are 0 or no number are dropped), smooths them forward with
 * the attack for rises and backward with the attack for falls, and writes the lower of the two: one
 * gain per line, its exact decimal value. Returns 0, or 1 after logging what is wrong.
 */
int _tmain(int argc, const char** argv);

/** The same, where flat ramps are to end. */
int run_smooth_gains(int argc, const char** argv, FlatRamp flat);

}  // namespace smooth_gains
