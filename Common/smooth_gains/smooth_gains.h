#pragma once

/** Step 8: limits how fast the gain rises and makes it fall ahead of a drop. */
namespace smooth_gains {

/**
 * One pass over count gains: rises take attack values, falls are immediate. A ramp reaches the
 * value that started it in exactly attack steps, never passes the current input and is not aimed
 * anew. attack: at least 1, which copies the input. Returns 0, or 1 on an internal fault.
 */
int SmoothGains1(const double* in, double* out, unsigned int count, int attack);

void ReverseArray(double* values, unsigned long count);

/**
 * Reads one gain per line (lines that are 0 or no number are dropped), smooths them forward with
 * the attack for rises and backward with the attack for falls, and writes the lower of the two: one
 * gain per line, its exact decimal value. Returns 0, or 1 after logging what is wrong.
 */
int _tmain(int argc, const char** argv);

}  // namespace smooth_gains
