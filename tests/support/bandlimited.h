// Waveforms of symbols whose value is known at any instant, whole sample intervals or not.
#pragma once

#include <cstddef>
#include <functional>
#include <span>
#include <vector>

namespace Tarnwick::Testing {

/// Levels with Gaussian edges at the UI boundaries, at `count` sample positions t = 0, 1, 2, ...:
///     x(t) = l[0] + sum_k (l[k] - l[k - 1]) Phi((u(t) - k) / edgeUi)
/// Phi is the normal distribution, so an edge's spectrum is exp(-2 (pi f edgeUi)^2) of an ideal step's, f in symbol rates:
/// at 0.3 UI it is down by 80 dB at 2.3 symbol rates.
/// @param levels  as sent from UI 0 on; they start again as often as it takes
/// @param uiAt    u(t); UI k lies from u = k to k + 1. Jitter and a moving clock belong here
std::vector<double> BandLimited(std::span<const double> levels, std::size_t count,
                                const std::function<double(double position)>& uiAt, double edgeUi = 0.3);

/// The same value at one place.
double BandLimitedAt(std::span<const double> levels, double ui, double edgeUi = 0.3);

/// The levels behind a channel of one tap a UI: sum_j taps[j] levels[k - j].
std::vector<double> WithEchoes(std::span<const double> levels, std::span<const double> taps);

}  // namespace Tarnwick::Testing
