#include "framework/fftifft.h"

#include <algorithm>

#include "framework/plumbing/error.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::SystemFramework {

namespace {

using Maths::AlignedBuffer;
using Maths::Complex;
using Maths::ComplexTransform;

class AnyLength final : public FFTIFFT {
public:
    void FFT(Complex* data, int count) override { Run("FFTIFFT::FFT", data, count, 1.0, &ComplexTransform::Forward); }
    void IFFT(Complex* data, int count, bool normalise) override
    {
        Run("FFTIFFT::IFFT", data, count, normalise ? count : 1.0, &ComplexTransform::Inverse);
    }

private:
    // Through a buffer of our own: the last bits of a transform depend on how its array is aligned.
    static void Run(const char* operation, Complex* data, int count, double divisor,
                    void (ComplexTransform::*transform)(Complex*) const)
    {
        if (count < 0)
            Refuse(operation, "count", count, "0 or more values");
        if (count == 0)
            return;
        if (data == nullptr)
            Refuse(operation, "data", "null", "an array of count values");
        const auto length = static_cast<std::size_t>(count);
        AlignedBuffer<Complex> buffer(length);
        std::copy(data, data + length, buffer.Data());
        ((*ComplexTransform::Of(length)).*transform)(buffer.Data());
        std::transform(buffer.Data(), buffer.Data() + length, data,
                       [divisor](Complex value) { return value / divisor; });
    }
};

}  // namespace

FFTIFFT& FFTIFFT_Factory::GetInstance()
{
    static AnyLength instance;
    return instance;
}

}  // namespace Tarnwick::DSO::SystemFramework
