// The scattering matrices of an S-parameter file, and whether they are those of a real fixture.
#pragma once

#include <complex>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::Workbench {

/// A Touchstone file of one, two or four ports, read plainly; other parameters are converted to S.
struct TARNWICK_WORKBENCH_API Network {
    std::size_t ports = 0;
    std::vector<double> frequency;        ///< [Hz] n values, rising
    std::vector<std::complex<double>> s;  ///< [n, ports, ports] row by row: [k, to, from]
    std::string converted;                ///< Z, Y, H or G where the file has those; empty: S
    std::size_t mixedModeLine = 0;        ///< where the file says that its ports are modes; 0: nowhere

    /// S at one point, from port `from` to port `to`, counted from 1.
    std::complex<double> At(std::size_t point, std::size_t to, std::size_t from) const
    {
        return s[(point * ports + to - 1) * ports + from - 1];
    }
};

/// @param name  the file's, which says how many ports there are
/// @return what could be read before the first line that cannot; without points for a table or another number of ports
TARNWICK_WORKBENCH_API Network ReadNetwork(std::string_view text, const std::string& name);

/// A figure and where it is found.
struct NetworkFigure {
    double value = 0.0;
    double frequency = 0.0;  ///< [Hz]
};

/// What no passive, linear fixture can exceed, and what de-embedding relies on.
struct TARNWICK_WORKBENCH_API NetworkQuality {
    NetworkFigure largestSingularValue;      ///< of S: above 1 the fixture would amplify
    std::optional<NetworkFigure> asymmetry;  ///< largest |Sij - Sji|, of two ports and more
    std::optional<NetworkFigure> phaseStep;  ///< [deg] largest from one frequency to the next, of the strongest paths
    std::optional<double> earlyEnergy;       ///< 0 to 1: share of the through path's impulse response before time zero
    bool IsPassive() const;
    bool IsReciprocal() const;
    bool IsCausal() const;
    bool IsSmooth() const;  ///< the points lie closely enough for the delay
};

/// Source of passivity: a matrix S is passive where no singular value exceeds 1; P. Triverio et al., "Stability, causality, and
/// passivity in electrical interconnect models", IEEE Trans. Advanced Packaging 30 (2007).
/// @param network  at least one point
TARNWICK_WORKBENCH_API NetworkQuality JudgeNetwork(const Network& network);

}  // namespace Tarnwick::DSO::Workbench
