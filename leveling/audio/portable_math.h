#pragma once

namespace quorvane {

/*
 * Functions whose last bit may differ from one C library to the next, from additions,
 * multiplications and divisions alone, which are exact to the last bit everywhere. What ends up in
 * a sample or decides over one is computed with these. The relative error is below 1e-14.
 */

/** e to the power of x, for |x| up to 600. */
double portable_exp(double x);

/** sin(pi x), for |x| up to 1e6. */
double portable_sin_pi(double x);

/** The linear amplitude of so many dB, for |db| up to 5000. */
double portable_amplitude(double db);

}  // namespace quorvane
