#include "maths/patterns/edgesignal.h"

#include <cmath>
#include <numbers>

#include "maths/patterns/periodicrecord.h"
#include "maths/responses/kaiser.h"
#include "maths/transforms/arraytransform.h"

namespace Tarnwick::DSO::Maths {

namespace {

// The kernel spans twelve points of a grid of twice the band; with this shape its images lie below 1e-11.
constexpr std::size_t kOversampling = 2;
constexpr int kWidth = 12;
constexpr double kShape = 2.34 * kWidth;  // Fessler and Sutton, section IV.C, for twofold oversampling

double Kernel(double offset)
{
    const double z = 2.0 * offset / kWidth;
    return z * z < 1.0 ? BesselI0(kShape * std::sqrt(1.0 - z * z)) : 0.0;
}

// The kernel's spectrum at a frequency [1 / points of the grid] of at most a quarter, below the shape's own.
double KernelSpectrum(double frequency)
{
    const double z = std::numbers::pi * kWidth * frequency;
    const double root = std::sqrt(kShape * kShape - z * z);
    return kWidth * std::sinh(root) / root;
}

}  // namespace

std::vector<std::complex<double>> EdgeSpectrum(std::span<const SignalEdge> edges, double first, double rise,
                                               std::size_t count)
{
    const auto length = static_cast<double>(count);
    const std::size_t points = kOversampling * count;
    std::vector<std::complex<double>> grid(points);
    double mean = first;
    for (const SignalEdge& edge : edges) {
        mean += edge.step * (1.0 - edge.middle / length);
        const double place = edge.middle * kOversampling;
        const auto nearest = static_cast<std::ptrdiff_t>(std::ceil(place)) - kWidth / 2;
        for (int k = 0; k < kWidth; ++k) {
            const std::ptrdiff_t point = nearest + k;
            grid[WrappedIndex(point, points)] += edge.step * Kernel(static_cast<double>(point) - place);
        }
    }
    ForwardTransform(grid);
    grid.resize(count / 2 + 1);
    grid[0] = mean * length;
    for (std::size_t k = 1; k < grid.size(); ++k) {
        const double cycles = static_cast<double>(k) / length;  // [1/samples]
        const double slope =
            Sinc(cycles * rise) / (2.0 * std::numbers::pi * cycles * KernelSpectrum(cycles / kOversampling));
        grid[k] *= std::complex<double>(0.0, -slope);
    }
    return grid;
}

}  // namespace Tarnwick::DSO::Maths
