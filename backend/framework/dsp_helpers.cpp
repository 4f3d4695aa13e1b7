#include "framework/dsp_helpers.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <new>
#include <numeric>
#include <span>
#include <string>

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"
#include "maths/equalisers/tdecq.h"
#include "maths/responses/interpolation.h"
#include "maths/responses/noisepreservation.h"

namespace Tarnwick::DSO::SystemFramework {

std::complex<double>* DSP_Helpers::preserve_noise_TF(std::complex<double>* response, double* frequencies,
                                                     std::size_t count, double corner, double upper, bool& applied)
{
    using Complex = std::complex<double>;
    struct Free {
        // NOLINTNEXTLINE(cppcoreguidelines-no-malloc, cppcoreguidelines-owning-memory)
        void operator()(void* block) const { std::free(block); }
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

void DSP_Helpers::GenerateTdecqEqualizerCoefficients(double* capture, int captureLength, double* reference,
                                                     int referenceLength, int numberOfTaps, int samplesPerUi,
                                                     int mainCursorIndex, double* taps, int tapsLength)
{
    const char* const operation = "DSP_Helpers::GenerateTdecqEqualizerCoefficients";
    const auto requireRecord = [operation](const char* field, const double* values, int length) {
        if (values == nullptr)
            Refuse(operation, field, "null", "an array of values");
        const auto [low, high] = std::minmax_element(values, values + length);
        if (!std::all_of(values, values + length, [](double value) { return std::isfinite(value); }))
            Refuse(operation, field, "not finite", "finite values");
        if (*low == *high)
            Refuse(operation, field, "constant", "a waveform that is not constant");
    };
    if (samplesPerUi < 1)
        Refuse(operation, "samplesPerUi", samplesPerUi, "at least 1");
    if (captureLength < samplesPerUi || captureLength % samplesPerUi != 0)
        Refuse(operation, "captureLength", captureLength,
               "a positive multiple of samplesPerUi, " + std::to_string(samplesPerUi));
    if (referenceLength != captureLength)
        Refuse(operation, "referenceLength", referenceLength, "captureLength, " + std::to_string(captureLength));
    if (numberOfTaps < 1)
        Refuse(operation, "numberOfTaps", numberOfTaps, "at least 1");
    if (tapsLength < numberOfTaps)
        Refuse(operation, "tapsLength", tapsLength, "at least numberOfTaps, " + std::to_string(numberOfTaps));
    if (mainCursorIndex >= numberOfTaps)
        Refuse(operation, "mainCursorIndex", mainCursorIndex,
               "below numberOfTaps, " + std::to_string(numberOfTaps) + ", or negative");
    if (taps == nullptr)
        Refuse(operation, "taps", "null", "an array of tapsLength values");
    requireRecord("capture", capture, captureLength);
    requireRecord("reference", reference, referenceLength);

    const auto length = static_cast<std::size_t>(captureLength);
    const auto spacing = static_cast<std::size_t>(samplesPerUi);
    const auto symbols = Maths::LocateReference({capture, length}, {reference, length}, spacing);
    if (!symbols)
        Refuse(operation, "number of levels in the reference", "outside its range", "2 to 4");
    const auto equaliser = Maths::FindReferenceEqualizer(
        {capture, length}, *symbols, spacing, static_cast<std::size_t>(numberOfTaps),
        mainCursorIndex < 0 ? std::nullopt : std::optional(static_cast<std::size_t>(mainCursorIndex)));
    if (!equaliser)
        Refuse(operation, "mainCursorIndex", mainCursorIndex, "an index at which the capture allows the largest tap");
    std::copy(equaliser->taps.begin(), equaliser->taps.end(), taps);
}

double* DSP_Helpers::Normalize(const double* a, int n)
{
    constexpr const char* kOperation = "DSP_Helpers::Normalize";
    if (n < 1)
        Refuse(kOperation, "n", n, "at least one value");
    if (a == nullptr)
        Refuse(kOperation, "a", "null", "an array of n values");
    const double sum = std::accumulate(a, a + n, 0.0);
    if (!std::isfinite(sum) || sum == 0.0)
        Refuse(kOperation, "sum", sum, "a finite sum other than zero");
    OwnedArray result = NewArray(static_cast<std::size_t>(n));
    std::transform(a, a + n, result.get(), [sum](double value) { return value / sum; });
    return result.release();
}

double* DSP_Helpers::interp1q(const double* x, const double* y, int n, const double* xi, int m)
{
    constexpr const char* kOperation = "DSP_Helpers::interp1q";
    const auto spanOf = [&](const char* name, const double* values, const char* countName, int count) {
        if (count < 0)
            Refuse(kOperation, countName, count, "0 or more values");
        if (values == nullptr && count > 0)
            Refuse(kOperation, name, "null", std::string("an array of ") + countName + " values");
        return std::span<const double>(values, static_cast<std::size_t>(count));
    };
    const std::span<const double> abscissae = spanOf("x", x, "n", n);
    const std::span<const double> ordinates = spanOf("y", y, "n", n);
    const std::span<const double> points = spanOf("xi", xi, "m", m);
    if (const auto at = Maths::FirstNotAscending(abscissae))
        Refuse(kOperation, "x[" + std::to_string(*at) + "]", abscissae[*at], "ascending abscissae");
    OwnedArray result = NewArray(points.size());
    Maths::InterpolateLinear(abscissae, ordinates, points, {result.get(), points.size()});
    return result.release();
}

}  // namespace Tarnwick::DSO::SystemFramework
