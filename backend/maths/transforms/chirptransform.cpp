#include "maths/transforms/chirptransform.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <numbers>
#include <utility>

#include "maths/convolution/hotloops.h"
#include "maths/transforms/factors.h"
#include "maths/transforms/lifetimes.h"
#include "maths/transforms/plancache.h"

namespace Tarnwick::DSO::Maths {

namespace {

// n^2 modulo 2 N keeps the angle small, so that long chirps lose no digits. Their second half repeats the first, with
// the other sign where N is odd.
std::vector<Complex> Chirp(std::size_t length)
{
    std::vector<Complex> chirp(length);
    const double sign = length % 2 == 0 ? 1.0 : -1.0;
    for (std::size_t n = 0; n <= length / 2; ++n) {
        const auto square = static_cast<double>(n * n % (2 * length));
        const Complex value = std::polar(1.0, -std::numbers::pi * square / static_cast<double>(length));
        if (n > 0)
            chirp[length - n] = sign * value;
        chirp[n] = value;
    }
    return chirp;
}

}  // namespace

std::shared_ptr<const ChirpTransform> ChirpTransform::Of(std::size_t length, std::size_t inputs)
{
    static NeverDestroyed<PlanCache<ChirpTransform, std::pair<std::size_t, std::size_t>>> cache;
    return cache->Get({length, inputs}, [=] { return std::make_shared<ChirpTransform>(length, inputs); });
}

// n k = (n^2 + k^2 - (k - n)^2) / 2: the transform is a convolution with the conjugate chirp between two products. The
// kernel starts at lag -(inputs - 1).
ChirpTransform::ChirpTransform(std::size_t length, std::size_t inputs)
    : inputs_(inputs),
      ring_(RingTransform::Values::Complex, length + inputs - 1),
      chirp_(Chirp(length)),
      spectrum_(ring_.SpectrumSize())
{
    std::vector<double> kernel(2 * (length + inputs - 1));
    double* const real = kernel.data();
    double* const imag = real + length + inputs - 1;
    for (std::size_t at = 0; at < length + inputs - 1; ++at) {
        const Complex value = chirp_[at < inputs ? inputs - 1 - at : at - (inputs - 1)];
        real[at] = value.real();
        imag[at] = -value.imag();
    }
    ConvolutionWork work;
    ring_.TransformKernel({real, imag, length + inputs - 1}, 1.0, spectrum_.Data(), work);
}

void ChirpTransform::Forward(Complex* data) const
{
    ConvolutionWork work;
    double* const real = work.rows.Reserve(2 * chirp_.size());
    double* const imag = real + chirp_.size();
    Loops().multiplyToParts(data, chirp_.data(), inputs_, real, imag);
    ring_.Convolve({real, imag, inputs_}, spectrum_.Data(), {real, imag, chirp_.size(), inputs_ - 1}, work);
    Loops().partsTimes(real, imag, chirp_.data(), chirp_.size(), data);
}

}  // namespace Tarnwick::DSO::Maths
