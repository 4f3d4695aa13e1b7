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

// The least length from `least` on that both FFT libraries are quick at: at high powers of two FFTW takes two to three
// times as long for each value as at these.
std::size_t GoodLength(std::size_t least)
{
    constexpr std::size_t kPowersOfTwo = 4096;  // [values] up to here powers of two are the quickest. Measured.
    if (least <= kPowersOfTwo)
        return std::bit_ceil(least);
    std::size_t best = std::bit_ceil(least);
    for (const std::size_t power : {128, 256, 512, 1024}) {
        std::size_t odd = (least + power - 1) / power | 1;
        while (odd * power < best && !HasOnlyFactors(odd, {3, 5}))
            odd += 2;
        best = std::min(best, odd * power);
    }
    return best;
}

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

// n k = (n^2 + k^2 - (k - n)^2) / 2: the transform is a convolution with the conjugate chirp between two products.
ChirpTransform::ChirpTransform(std::size_t length, std::size_t inputs)
    : inputs_(inputs),
      workLength_(GoodLength(length + inputs - 1)),
      inner_(ComplexTransform::Of(workLength_)),
      chirp_(Chirp(length)),
      spectrum_(workLength_)
{
    Complex* const kernel = spectrum_.Data();
    std::fill(kernel, kernel + workLength_, Complex{});
    for (std::size_t n = 0; n < length; ++n)
        kernel[n] = std::conj(chirp_[n]) / static_cast<double>(workLength_);
    std::reverse_copy(kernel + 1, kernel + inputs, kernel + workLength_ - (inputs - 1));
    inner_->Forward(kernel);
}

void ChirpTransform::Forward(Complex* data) const
{
    const HotLoops& loops = Loops();
    loops.multiply(data, chirp_.data(), inputs_);
    std::fill(data + inputs_, data + workLength_, Complex{});
    inner_->Forward(data);
    loops.multiply(data, spectrum_.Data(), workLength_);
    inner_->Inverse(data);
    loops.multiply(data, chirp_.data(), chirp_.size());
}

}  // namespace Tarnwick::DSO::Maths
