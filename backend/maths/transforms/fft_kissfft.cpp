// kissfft's C++ header behind the seam: no licence condition, no planner, no global state. Its butterfly for a prime
// factor p above 5 takes O(p n) and shares a scratch array between threads, so lengths with such a factor go through a
// chirp transform.
#include <vector>

#include <kissfft.hh>

#include "maths/transforms/chirptransform.h"
#include "maths/transforms/factors.h"
#include "maths/transforms/fft.h"
#include "maths/transforms/lengths.h"
#include "maths/transforms/lifetimes.h"
#include "maths/transforms/orderedtransform.h"
#include "maths/transforms/plancache.h"
#include "maths/transforms/roots.h"

namespace Tarnwick::DSO::Maths {

namespace {

bool IsFiveSmooth(std::size_t length)
{
    return HasOnlyFactors(length, {2, 3, 5});
}

class SmoothTransform final : public ComplexTransform {
public:
    explicit SmoothTransform(std::size_t length) : length_(length), forward_(length, false), inverse_(length, true) {}
    void Forward(Complex* data) const override { Run(forward_, data); }
    void Inverse(Complex* data) const override { Run(inverse_, data); }

private:
    void Run(const kissfft<double>& transform, Complex* data) const
    {
        struct Copy {
            AlignedBuffer<Complex> values;
        };
        Complex* const copy = OfThisThread<Copy>().values.Reserve(length_);
        std::copy(data, data + length_, copy);
        transform.transform(copy, data);
    }
    std::size_t length_;
    kissfft<double> forward_;
    kissfft<double> inverse_;
};

class Chirped final : public ComplexTransform {
public:
    explicit Chirped(std::size_t length) : length_(length), chirp_(length, length) {}
    void Forward(Complex* data) const override { chirp_.Forward(data); }
    void Inverse(Complex* data) const override
    {
        for (std::size_t n = 0; n < length_; ++n)
            data[n] = std::conj(data[n]);
        Forward(data);
        for (std::size_t n = 0; n < length_; ++n)
            data[n] = std::conj(data[n]);
    }

private:
    std::size_t length_;
    ChirpTransform chirp_;
};

// A real transform of N values is a complex one of N/2 pairs and a pass that separates even from odd samples, which gives
// bins k and N/2 - k from the same two of the pairs' bins.
// Source: W. H. Press et al., "Numerical Recipes", section 12.3, "FFT of single real function".
class PairedReal final : public RealTransform {
public:
    explicit PairedReal(std::size_t length)
        : half_(length / 2), pairs_(ComplexTransform::Of(half_)), twiddles_(half_ / 2 + 1)
    {
        for (std::size_t k = 0; k < twiddles_.size(); ++k)
            twiddles_[k] = RootOfUnity(k, length);
    }
    void Forward(double* values, Complex* bins) const override
    {
        for (std::size_t n = 0; n < half_; ++n)
            bins[n] = {values[2 * n], values[2 * n + 1]};
        pairs_->Forward(bins);
        bins[half_] = bins[0];
        for (std::size_t k = 0; k <= half_ / 2; ++k) {
            const Complex mirror = std::conj(bins[half_ - k]);
            const Complex even = 0.5 * (bins[k] + mirror);
            const Complex odd = Product(Product(Complex(0.0, -0.5), bins[k] - mirror), twiddles_[k]);
            bins[k] = even + odd;
            bins[half_ - k] = std::conj(even - odd);
        }
    }
    void Inverse(Complex* bins, double* values) const override
    {
        for (std::size_t k = 0; k <= half_ / 2; ++k) {
            const Complex mirror = std::conj(bins[half_ - k]);
            const Complex even = bins[k] + mirror;
            const Complex odd = Product(Complex(0.0, 1.0), Product(bins[k] - mirror, std::conj(twiddles_[k])));
            bins[k] = even + odd;
            bins[half_ - k] = std::conj(even - odd);
        }
        pairs_->Inverse(bins);
        for (std::size_t n = 0; n < half_; ++n) {
            values[2 * n] = bins[n].real();
            values[2 * n + 1] = bins[n].imag();
        }
    }

private:
    std::size_t half_;
    std::shared_ptr<const ComplexTransform> pairs_;
    std::vector<Complex> twiddles_;
};

}  // namespace

std::shared_ptr<const RealTransform> RealTransform::Of(std::size_t length)
{
    RequireRealLength(length);
    static NeverDestroyed<PlanCache<RealTransform>> cache;
    return cache->Get(length, [length] { return std::make_shared<PairedReal>(length); });
}

std::shared_ptr<const ComplexTransform> ComplexTransform::Of(std::size_t length)
{
    RequireComplexLength(length);
    static NeverDestroyed<PlanCache<ComplexTransform>> smooth;
    if (IsFiveSmooth(length))
        return smooth->Get(length, [length]() -> std::shared_ptr<const ComplexTransform> {
            if (auto ordered = OrderedTransform::For(length))
                return ordered;
            return std::make_shared<SmoothTransform>(length);
        });
    // In a cache of its own: making one asks the first cache for a smooth transform, and a cache is locked meanwhile.
    static NeverDestroyed<PlanCache<ComplexTransform>> chirped;
    return chirped->Get(length, [length] { return std::make_shared<Chirped>(length); });
}

}  // namespace Tarnwick::DSO::Maths
