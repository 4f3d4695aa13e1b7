#include "framework/dsp_helpers.h"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>

#include "framework/maths/noisepreservation.h"
#include "framework/plumbing/error.h"

namespace Tarnwick::DSO::SystemFramework {

std::complex<double>* DSP_Helpers::preserve_noise_TF(std::complex<double>* response, double* frequencies,
                                                     std::size_t count, double corner, double upper, bool& applied)
{
    using Complex = std::complex<double>;
    struct Free {
        void operator()(void* block) const { std::free(block); }  // NOLINT(cppcoreguidelines-no-malloc)
    };
    if (count > 0 && response == nullptr)
        Refuse("DSP_Helpers::preserve_noise_TF", "response", "null", "an array of count values");
    if (count > static_cast<std::size_t>(-1) / sizeof(Complex))
        throw std::bad_array_new_length();
    // The one result that callers release with std::free; malloc(0) may be null, so room for one at least.
    const std::size_t bytes = std::max<std::size_t>(count, 1) * sizeof(Complex);
    std::unique_ptr<Complex[], Free> result(static_cast<Complex*>(std::malloc(bytes)));  // NOLINT
    if (!result)
        throw std::bad_alloc();
    std::copy(response, response + count, result.get());
    const std::size_t axisLength = count > 0 && frequencies != nullptr ? count / 2 + 1 : 0;
    applied = Maths::PreserveNoise({result.get(), count}, {frequencies, axisLength}, corner, upper);
    return result.release();
}

}  // namespace Tarnwick::DSO::SystemFramework
