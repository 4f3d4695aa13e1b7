// Network parameters of other kinds as scattering parameters.
#pragma once

#include <complex>
#include <optional>
#include <span>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Maths {

/// S of a network of n ports, all of one reference resistance, from its impedances (Z), admittances (Y) or, of a two-port,
/// its hybrid (H) or inverse hybrid parameters (G), normalised to that resistance as Touchstone files up to version 1.1 are:
///     S = J (P + I)^-1 (P - I),  J = diag(+1 where P is driven by a current, -1 where by a voltage)
/// Source: D. A. Frickey, "Conversions between S, Z, Y, h, ABCD, and T parameters", IEEE Trans. Microwave Theory Tech. 42
/// (1994), written for normalised parameters; EIA/IBIS Open Forum, "Touchstone File Format Specification", rev. 1.1.
/// @param kind    'Z', 'Y', 'H' or 'G'
/// @param values  n x n, row by row
/// @return row by row; nothing when P + I is singular, or H or G are not those of a two-port
TARNWICK_FRAMEWORK_API std::optional<std::vector<std::complex<double>>> ScatteringFrom(
    char kind, std::span<const std::complex<double>> values);

/// The largest singular value of an n x n matrix, given row by row.
TARNWICK_FRAMEWORK_API double LargestSingularValue(std::span<const std::complex<double>> values);

}  // namespace Tarnwick::DSO::Maths
