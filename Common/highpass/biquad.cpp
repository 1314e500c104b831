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
namespace highpass {

namespace {
constexpr double kTwoPi = 6.283185307179586;
constexpr double kLn2Over2 = 0.34657359027997264;  // ln 2 / 2: octave bandwidth
}  // namespace

bool BiQuad_new(int type, double dbGain, double freq, double srate, double bandwidth, biquad* b) {
    const double A = std::pow(10.0, dbGain / 40.0);
    const double w0 = kTwoPi * freq / srate;
    const double sn = std::sin(w0);
    const double cs = std::cos(w0);
    // sin(w0) / (2 Q), with Q from a bandwidth in octaves between the -3 dB points; w0 / sin(w0)
    // makes up for the bent axis.
    const double alpha = sn * std::sinh(kLn2Over2 * bandwidth * w0 / sn);
    // The shelves have the steepest slope that does not overshoot (S = 1, Q = 1 / sqrt 2), whatever
    // the bandwidth: 2 sqrt(A) alpha is then sqrt(2 A) sin(w0).
    const double beta = std::sqrt(A + A);

    double b0 = 0, b1 = 0, b2 = 0, a0 = 0, a1 = 0, a2 = 0;
    switch (type) {
        case kLowPass:
            b0 = (1 - cs) / 2;
            b1 = 1 - cs;
            b2 = (1 - cs) / 2;
            a0 = 1 + alpha;
            a1 = -2 * cs;
            a2 = 1 - alpha;
            break;
        case kHighPass:
            b0 = (1 + cs) / 2;
            b1 = -(1 + cs);
            b2 = (1 + cs) / 2;
            a0 = 1 + alpha;
            a1 = -2 * cs;
            a2 = 1 - alpha;
            break;
        case kBandPass:
            b0 = alpha;
            b1 = 0;
            b2 = -alpha;
            a0 = 1 + alpha;
            a1 = -2 * cs;
            a2 = 1 - alpha;
            break;
        case kNotch:
            b0 = 1;
            b1 = -2 * cs;
            b2 = 1;
            a0 = 1 + alpha;
            a1 = -2 * cs;
            a2 = 1 - alpha;
            break;
        case kPeaking:
            b0 = 1 + alpha * A;
            b1 = -2 * cs;
            b2 = 1 - alpha * A;
            a0 = 1 + alpha / A;
            a1 = -2 * cs;
            a2 = 1 - alpha / A;
            break;
        case kLowShelf:
            b0 = A * ((A + 1) - (A - 1) * cs + beta * sn);
            b1 = 2 * A * ((A - 1) - (A + 1) * cs);
            b2 = A * ((A + 1) - (A - 1) * cs - beta * sn);
            a0 = (A + 1) + (A - 1) * cs + beta * sn;
            a1 = -2 * ((A - 1) + (A + 1) * cs);
            a2 = (A + 1) + (A - 1) * cs - beta * sn;
            break;
        case kHighShelf:
            b0 = A * ((A + 1) + (A - 1) * cs + beta * sn);
            b1 = -2 * A * ((A - 1) + (A + 1) * cs);
            b2 = A * ((A + 1) + (A - 1) * cs - beta * sn);
            a0 = (A + 1) - (A - 1) * cs + beta * sn;
            a1 = 2 * ((A - 1) - (A + 1) * cs);
            a2 = (A + 1) - (A - 1) * cs - beta * sn;
            break;
        default:
            return false;
    }
    *b = {b0 / a0, b1 / a0, b2 / a0, a1 / a0, a2 / a0, 0.0, 0.0, 0.0, 0.0};
    return true;
}

}  // namespace highpass
