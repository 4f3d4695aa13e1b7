#include "maths/responses/kaiser.h"

#include <cmath>
#include <numbers>

namespace Tarnwick::DSO::Maths {

double BesselI0(double x)
{
    constexpr double kNegligible = 1e-17;  // of the sum
    double term = 1.0;
    double sum = 1.0;
    for (int k = 1; term > kNegligible * sum; ++k) {
        term *= (0.5 * x / k) * (0.5 * x / k);
        sum += term;
    }
    return sum;
}

double Sinc(double x)
{
    const double angle = std::numbers::pi * x;
    return angle == 0.0 ? 1.0 : std::sin(angle) / angle;
}

double KaiserSinc(double t, double halfWidth, double beta)
{
    const double share = t / halfWidth;
    if (!(std::abs(share) < 1.0))
        return 0.0;
    return Sinc(t) * BesselI0(beta * std::sqrt(1.0 - share * share)) / BesselI0(beta);
}

}  // namespace Tarnwick::DSO::Maths
