#include "maths/responses/movingaverage.h"

namespace Tarnwick::DSO::Maths {

int OddWindow(int requested)
{
    constexpr int kShortest = 3;
    return requested < kShortest ? kShortest : requested | 1;
}

std::vector<double> CentredBoxcar(int windowLength, std::size_t recordLength)
{
    const auto half = static_cast<std::size_t>(windowLength / 2);
    std::vector<double> kernel(recordLength, 0.0);
    kernel[0] = 1.0 / windowLength;
    for (std::size_t lag = 1; lag <= half; ++lag)
        kernel[lag] = kernel[recordLength - lag] = 1.0 / windowLength;
    return kernel;
}

}  // namespace Tarnwick::DSO::Maths
