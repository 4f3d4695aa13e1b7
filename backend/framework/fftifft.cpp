#include "framework/fftifft.h"

#include "framework/plumbing/error.h"
#include "maths/transforms/arraytransform.h"
#include "maths/transforms/lifetimes.h"

namespace Tarnwick::DSO::SystemFramework {

namespace {

using Maths::Complex;

std::span<Complex> Checked(const char* operation, Complex* data, int count)
{
    if (count < 0)
        Refuse(operation, "count", count, "0 or more values");
    if (count > 0 && data == nullptr)
        Refuse(operation, "data", "null", "an array of count values");
    return {data, static_cast<std::size_t>(count)};
}

class AnyLength final : public FFTIFFT {
public:
    void FFT(Complex* data, int count) override { Maths::ForwardTransform(Checked("FFTIFFT::FFT", data, count)); }
    void IFFT(Complex* data, int count, bool normalise) override
    {
        Maths::InverseTransform(Checked("FFTIFFT::IFFT", data, count),
                                normalise ? Maths::Scaling::ByLength : Maths::Scaling::None);
    }
};

}  // namespace

FFTIFFT& FFTIFFT_Factory::GetInstance()
{
    static Maths::NeverDestroyed<AnyLength> instance;
    return *instance;
}

}  // namespace Tarnwick::DSO::SystemFramework
