#include "maths/transforms/spectrum.h"

#include <algorithm>

#include "maths/transforms/factors.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

namespace {

// Odd counts with a larger prime factor take less time by a chirp, which needs only half of the bins. Measured; see
// docs/performance.md.
std::shared_ptr<const ChirpTransform> ChirpFor(std::size_t count)
{
    return count % 2 == 1 && !HasOnlyFactors(count, {3, 5}) ? ChirpTransform::Of(count, count / 2 + 1) : nullptr;
}

}  // namespace

HermitianBins::HermitianBins(std::size_t count) : count_(count), chirp_(ChirpFor(count)), buffer_(count) {}

std::vector<double> HermitianBins::Inverse()
{
    if (count_ == 0)
        return {};
    Complex* const bins = buffer_.Data();
    double factor = 1.0;
    if (chirp_) {
        // h[n] = (2/N) Re(H[0]/2 + sum_{0 < k <= N/2} conj(H[k]) exp(-2 pi i k n / N))
        factor = 2.0;
        bins[0] *= 0.5;
        std::transform(bins, bins + count_ / 2 + 1, bins, [](Complex bin) { return std::conj(bin); });
        chirp_->Forward(bins);
    } else {
        ComplexTransform::Of(count_)->Inverse(bins);
    }
    std::vector<double> values(count_);
    const auto count = static_cast<double>(count_);
    std::transform(bins, bins + count_, values.begin(), [=](Complex value) { return factor * value.real() / count; });
    return values;
}

std::vector<double> RealInverse(std::span<const Complex> bins)
{
    HermitianBins copy(bins.size());
    std::copy(bins.begin(), bins.end(), copy.Bins().begin());
    return copy.Inverse();
}

}  // namespace Tarnwick::DSO::Maths
