#include "Common/highpass/biquad.h"

#include <cmath>

/*
 * The digital filters come from analog prototypes by the bilinear transform, whose frequency axis
 * is bent; the formulas are arranged so that the given frequency is met exactly. With s in units of
 * it and Q following from the bandwidth, the prototypes are:
 *
 *     low-pass    1 / (s^2 + s/Q + 1)              high-pass   s^2 / (s^2 + s/Q + 1)
 *     band-pass   (s/Q) / (s^2 + s/Q + 1)          notch       (s^2 + 1) / (s^2 + s/Q + 1)
 *     peaking     (s^2 + s A/Q + 1) / (s^2 + s/(A Q) + 1)
 *     low shelf   A (s^2 + s sqrt(A)/Q + A) / (A s^2 + s sqrt(A)/Q + 1)
 *     high shelf  A (A s^2 + s sqrt(A)/Q + 1) / (s^2 + s sqrt(A)/Q + A)
 *
 * A^2 is the linear gain of the peaking and shelf types at the centre or on the shelf.
 */

namespace {
constexpr double kTwoPi = 6.283185307179586;
constexpr double kLn2Over2 = 0.34657359027997264;  // ln 2 / 2: octave bandwidth

/** Coefficients of 1, z^-1 and z^-2 in numerator (b) and denominator (a), before a0 is made 1. */
struct Section {
    double b0, b1, b2, a0, a1, a2;
};

/** A numerator over the denominator that the four types without a gain share. */
Section over_resonance(double b0, double b1, double b2, double cs, double alpha) {
    return {b0, b1, b2, 1 + alpha, -2 * cs, 1 - alpha};
}

// The shelves have the steepest slope that does not overshoot (S = 1, Q = 1 / sqrt 2), whatever the
// bandwidth: 2 sqrt(A) alpha is then sqrt(2 A) sin(w0).

Section low_shelf(double A, double sn, double cs) {
    const double beta = std::sqrt(A + A);
    return {A * ((A + 1) - (A - 1) * cs + beta * sn),
            2 * A * ((A - 1) - (A + 1) * cs),
            A * ((A + 1) - (A - 1) * cs - beta * sn),
            (A + 1) + (A - 1) * cs + beta * sn,
            -2 * ((A - 1) + (A + 1) * cs),
            (A + 1) + (A - 1) * cs - beta * sn};
}

Section high_shelf(double A, double sn, double cs) {
    const double beta = std::sqrt(A + A);
    return {A * ((A + 1) + (A - 1) * cs + beta * sn),
            -2 * A * ((A - 1) + (A + 1) * cs),
            A * ((A + 1) + (A - 1) * cs - beta * sn),
            (A + 1) - (A - 1) * cs + beta * sn,
            2 * ((A - 1) - (A + 1) * cs),
            (A + 1) - (A - 1) * cs - beta * sn};
}

}  // namespace

bool BiQuad_new(int type, double dbGain, double freq, double srate, double bandwidth, biquad* b) {
    const double A = std::pow(10.0, dbGain / 40.0);
    const double w0 = kTwoPi * freq / srate;
    const double sn = std::sin(w0);
    const double cs = std::cos(w0);
    // sin(w0) / (2 Q), with Q from a bandwidth in octaves between the -3 dB points; w0 / sin(w0)
    // makes up for the bent axis.
    const double alpha = sn * std::sinh(kLn2Over2 * bandwidth * w0 / sn);
    Section s{};
    switch (type) {
        case kLowPass:
            s = over_resonance((1 - cs) / 2, 1 - cs, (1 - cs) / 2, cs, alpha);
            break;
        case kHighPass:
            s = over_resonance((1 + cs) / 2, -(1 + cs), (1 + cs) / 2, cs, alpha);
            break;
        case kBandPass:
            s = over_resonance(alpha, 0, -alpha, cs, alpha);
            break;
        case kNotch:
            s = over_resonance(1, -2 * cs, 1, cs, alpha);
            break;
        case kPeaking:
            s = {1 + alpha * A, -2 * cs, 1 - alpha * A, 1 + alpha / A, -2 * cs, 1 - alpha / A};
            break;
        case kLowShelf:
            s = low_shelf(A, sn, cs);
            break;
        case kHighShelf:
            s = high_shelf(A, sn, cs);
            break;
        default:
            return false;
    }
    *b = {s.b0 / s.a0, s.b1 / s.a0, s.b2 / s.a0, s.a1 / s.a0, s.a2 / s.a0, 0.0, 0.0, 0.0, 0.0};
    return true;
}
