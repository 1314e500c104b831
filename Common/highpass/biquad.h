#pragma once

/* One filter section is of use outside the step, too: it belongs to no namespace. */

/** One second-order section: its coefficients, divided by a0, and its last two inputs and outputs.
 */
struct biquad {
    double b0, b1, b2, a1, a2;
    double x1, x2, y1, y2;
};

enum FilterType {
    kLowPass,
    kHighPass,
    kBandPass,  // constant 0 dB peak gain
    kNotch,
    kPeaking,
    kLowShelf,
    kHighShelf
};

/**
 * Fills b with the filter of the given FilterType and a state of silence. Formulas: Audio EQ
 * Cookbook (R. Bristow-Johnson), with the quality given as a bandwidth.
 *
 * dbGain: dB, for the peaking and shelf types. freq: centre, corner or shelf midpoint, and srate:
 * sample rate, both in Hz. bandwidth: octaves. Returns false, leaving b alone, for an unknown type.
 */
bool BiQuad_new(int type, double dbGain, double freq, double srate, double bandwidth, biquad* b);

/** Filters one sample: direct form I, whose state is plain input and output. */
inline double BiQuad(double sample, biquad* b) {
    // From left to right: another order of the five terms gives other last bits.
    const double result =
        b->b0 * sample + b->b1 * b->x1 + b->b2 * b->x2 - b->a1 * b->y1 - b->a2 * b->y2;
    b->x2 = b->x1;
    b->x1 = sample;
    b->y2 = b->y1;
    b->y1 = result;
    return result;
}

namespace highpass {
using ::biquad;
using ::BiQuad;
using ::BiQuad_new;
using ::FilterType;
using ::kBandPass;
using ::kHighPass;
using ::kHighShelf;
using ::kLowPass;
using ::kLowShelf;
using ::kNotch;
using ::kPeaking;
}  // namespace highpass
