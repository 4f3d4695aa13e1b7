// The Kaiser window, and the sinc that it bounds: what band-limited interpolation weighs samples with.
//     w(u) = I0(b sqrt(1 - u^2)) / I0(b) for |u| < 1, otherwise 0
// Source: J. F. Kaiser, "Nonrecursive digital filter design using the I0-sinh window function", Proc. IEEE Int. Symp.
// Circuits and Systems (1974) 20-23.
#pragma once

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// Modified Bessel function of the first kind and order 0, by its power series, sum of ((x/2)^k / k!)^2.
TARNWICK_FRAMEWORK_API double BesselI0(double x);

/// sin(pi x) / (pi x); 1 at 0.
TARNWICK_FRAMEWORK_API double Sinc(double x);

/// Sinc(t) under the window, which ends at `halfWidth` on either side of 0.
/// @param beta  b: the larger, the lower the sidelobes and the wider the transition
TARNWICK_FRAMEWORK_API double KaiserSinc(double t, double halfWidth, double beta);

}  // namespace Tarnwick::DSO::Maths
