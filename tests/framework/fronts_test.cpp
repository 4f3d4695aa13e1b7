// The numeric operations as hosts call them: what they check, and that the caller owns what they return.
#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "framework/convolution.h"
#include "framework/dsp_helpers.h"
#include "framework/fftifft.h"
#include "framework/gaussianfilter.h"
#include "framework/heaputilities.h"
#include "framework/matrixutilities.h"
#include "framework/numberutilities.h"
#include "framework/prbs.h"
#include "framework/rangeutilities.h"
#include "support/expectations.h"
#include "support/signals.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

using Complex = std::complex<double>;
using Matrices = MatrixUtilities;
using RealMatrix = Matrices::RealMatrix;
using ComplexMatrix = Matrices::ComplexMatrix;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Calls, each with the rest of the text that refuses it.
using Refusals = std::vector<std::pair<std::function<void()>, std::string>>;

void ExpectEachRefused(const std::string& place, const Refusals& refusals)
{
    for (const auto& [call, text] : refusals)
        ExpectRefused(call, place + text);
}

// Small integers: exact in every order of summing.
TEST(CircularConv, WrapsFoldsAndTakesEmptyArrays)
{
    const struct {
        const char* label;
        std::vector<double> x, h, y;
    } cases[] = {{"kernel as long as the period", {1, 2, 3}, {1, 10, 100}, {231, 312, 123}},
                 {"longer kernel is folded", {1, 2, 3}, {1, 0, 0, 1, 5}, {17, 9, 16}},
                 {"empty kernel", {1, 2}, {}, {0, 0}},
                 {"no samples", {}, {1, 2}, {}}};
    for (const auto& [label, x, h, y] : cases) {
        SCOPED_TRACE(label);
        const auto result =
            Take(Convolution::CircularConv(x.data(), static_cast<int>(x.size()), h.data(), static_cast<int>(h.size())),
                 x.size());
        EXPECT_EQ(result, y);
    }
    const double one[] = {1.0};
    ExpectEachRefused(
        "Convolution::CircularConv: ",
        {{[&] { Convolution::CircularConv(one, -1, one, 1); }, "n is -1; expected 0 or more values"},
         {[&] { Convolution::CircularConv(one, 1, one, -2); }, "m is -2; expected 0 or more values"},
         {[&] { Convolution::CircularConv(nullptr, 1, one, 1); }, "x is null; expected an array of values"},
         {[&] { Convolution::CircularConv(one, 1, nullptr, 1); }, "h is null; expected an array of values"}});
}

TEST(HeapUtilities, ResizesACopy)
{
    const double old[] = {1.0, 2.0, 3.0};
    EXPECT_EQ(Take(HeapUtilities::ResizePointerArray(old, 3, 5), 5), std::vector<double>({1.0, 2.0, 3.0, 0.0, 0.0}));
    EXPECT_EQ(Take(HeapUtilities::ResizePointerArray(old, 3, 2), 2), std::vector<double>({1.0, 2.0}));
    EXPECT_EQ(Take(HeapUtilities::ResizePointerArray(nullptr, 0, 1), 1), std::vector<double>{0.0});
    Take(HeapUtilities::ResizePointerArray(old, 3, 0), 0);
    ExpectRefused([] { HeapUtilities::ResizePointerArray(nullptr, 1, 2); },
                  "HeapUtilities::ResizePointerArray: a is null; expected an array of oldCount values");
}

TEST(MatrixUtilities, TransposesAndMultipliesRowMajorArrays)
{
    const std::vector<double> a{1, 2, 3, 4, 5, 6};                       // 2 x 3
    const std::vector<double> b{1, 0, -1, 2, 0.5, 1, 0, 3, 2, 1, 1, 1};  // 3 x 4
    EXPECT_EQ(Take(Matrices::MatrixTranspose(a.data(), 2, 3), 6), std::vector<double>({1, 4, 2, 5, 3, 6}));
    EXPECT_EQ(Take(Matrices::MultiplyDoubleMatrices(a.data(), 2, 3, b.data(), 3, 4), 8),
              std::vector<double>({8, 5, 2, 11, 18.5, 11, 2, 29}));
}

TEST(MatrixUtilities, InvertsWithPivotsAndLetsNanThrough)
{
    const double exchange[] = {0, 2, 0, 0, 0, 1, 4, 0, 0};
    EXPECT_EQ(Take(Matrices::MatrixInverse(exchange, 3), 9), std::vector<double>({0, 0, 0.25, 0.5, 0, 0, 0, 1, 0}));
    const double general[] = {2, 1, 0, 1, 2, 1, 0, 1, 2};
    const std::vector<double> inverse{0.75, -0.5, 0.25, -0.5, 1, -0.5, 0.25, -0.5, 0.75};
    EXPECT_TRUE(AreNear(Take(Matrices::MatrixInverse(general, 3), 9), inverse, 8 * DBL_EPSILON));
    const double broken[] = {1, kNan, 0, 1};
    for (const double value : Take(Matrices::MatrixInverse(broken, 2), 4))
        EXPECT_TRUE(std::isnan(value));
}

TEST(MatrixUtilities, WorksOnVectorsOfRowsAndReversesArrays)
{
    const Complex j(0.0, 1.0);
    const RealMatrix real{{1, -1}, {0, 2}, {3, 0}};
    const ComplexMatrix complex{{1.0 + j, 2.0}, {-j, 4.0 * j}};
    EXPECT_EQ(Matrices::MatrixTranspose(real), RealMatrix({{1, 0, 3}, {-1, 2, 0}}));
    EXPECT_EQ(Matrices::MultiplyDoubleComplexMatrix(real, complex),
              ComplexMatrix({{1.0 + 2.0 * j, 2.0 - 4.0 * j}, {-2.0 * j, 8.0 * j}, {3.0 + 3.0 * j, 6.0}}));
    EXPECT_EQ(Matrices::MultiplyComplexDoubleMatrix(complex, {{1, 2, 0}, {0, 1, -1}}),
              ComplexMatrix({{1.0 + j, 4.0 + 2.0 * j, -2.0}, {-j, 2.0 * j, -4.0 * j}}));
    EXPECT_EQ(Matrices::ComplexMatrixSwapRows(complex, 0, 1), ComplexMatrix({complex[1], complex[0]}));
    EXPECT_EQ(Matrices::MatrixTranspose(RealMatrix{}), RealMatrix{});
    double values[] = {1, 2, 3, 4};
    Matrices::reverse(values, 3);
    EXPECT_EQ(std::vector(values, values + 4), std::vector<double>({3, 2, 1, 4}));
    Matrices::reverse(nullptr, 0);
}

TEST(MatrixUtilities, RefuseByOperationAndValue)
{
    const double values[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    const ComplexMatrix complex{{1.0, 2.0}, {3.0, 4.0}};
    const RealMatrix row{{1, 2}};
    const RealMatrix ragged{{1, 2}, {3}};
    ExpectEachRefused(
        "MatrixUtilities::",
        {{[&] { Matrices::MatrixTranspose(values, 0, 3); },
          "MatrixTranspose: rows of matrix is 0; expected at least 1"},
         {[&] { Matrices::MatrixTranspose(values, 3, -1); },
          "MatrixTranspose: columns of matrix is -1; expected at least 1"},
         {[&] { Matrices::MatrixTranspose(ragged); },
          "MatrixTranspose: length of row 1 of matrix is 1; expected 2, that of row 0"},
         {[&] { Matrices::MultiplyDoubleMatrices(values, 3, 3, nullptr, 3, 3); },
          "MultiplyDoubleMatrices: b is null; expected an array of rows * columns values"},
         {[&] { Matrices::MultiplyDoubleMatrices(values, 3, 3, values, 2, 3); },
          "MultiplyDoubleMatrices: columns of a is 3; expected 2, the rows of b"},
         {[&] { Matrices::MultiplyComplexDoubleMatrix(complex, row); },
          "MultiplyComplexDoubleMatrix: columns of a is 2; expected 1, the rows of b"},
         {[&] { Matrices::MatrixInverse(values, 3); },
          "MatrixInverse: rank of the matrix is 2; expected 3, that of one with an inverse"},
         {[&] { Matrices::ComplexMatrixSwapRows(complex, 0, 2); },
          "ComplexMatrixSwapRows: second is 2; expected 0 to 1"},
         {[&] { Matrices::ComplexMatrixSwapRows({}, 0, 0); },
          "ComplexMatrixSwapRows: first is 0; expected a matrix with rows"},
         {[&] { Matrices::reverse(nullptr, 2); }, "reverse: values is null; expected an array of count values"}});
}

TEST(NumberUtilitiesRound, GoesToTheNearestAndHalvesAwayFromZero)
{
    const struct {
        double value;
        int digits;
        double rounded;
    } cases[] = {{-2.5, 0, -3.0},    {0.125, 2, 0.13},    {0.0000049, 5, 0.0},       {1234.5, -2, 1200.0},
                 {1e300, 20, 1e300}, {1e300, 400, 1e300}, {kInfinity, 5, kInfinity}, {3.0, -400, 0.0}};
    for (const auto& [value, digits, rounded] : cases)
        EXPECT_EQ(NumberUtilities::Round(value, digits), rounded) << value << " to " << digits;
    EXPECT_TRUE(std::isnan(NumberUtilities::Round(kNan, 5)));
}

TEST(RangeUtilities, GiveExtremesAndMeanOfAtLeastOneValue)
{
    const double values[] = {0.5, -1.0, 5.0, 1.5};
    const struct {
        double (*operation)(const double*, int);
        std::string name;
        double result;
    } cases[] = {{RangeUtilities::Min, "Min", -1.0},
                 {RangeUtilities::Max, "Max", 5.0},
                 {RangeUtilities::Average, "Average", 1.5}};
    for (const auto& each : cases) {
        EXPECT_EQ(each.operation(values, 4), each.result) << each.name;
        ExpectEachRefused(
            "RangeUtilities::" + each.name,
            {{[&] { each.operation(values, 0); }, ": count is 0; expected at least one value"},
             {[&] { each.operation(nullptr, 1); }, ": values is null; expected an array of count values"}});
    }
}

TEST(DspHelpersNormalize, DividesByTheSumOrNamesIt)
{
    const double taps[] = {-0.5, 2.0, 0.5};
    EXPECT_EQ(Take(DSP_Helpers::Normalize(taps, 3), 3), std::vector<double>({-0.25, 1.0, 0.25}));
    const double cancelling[] = {1.0, -1.0};
    const double broken[] = {1.0, kNan};
    ExpectEachRefused(
        "DSP_Helpers::Normalize: ",
        {{[&] { DSP_Helpers::Normalize(cancelling, 2); }, "sum is 0; expected a finite sum other than zero"},
         {[&] { DSP_Helpers::Normalize(broken, 2); }, "sum is nan; expected a finite sum other than zero"},
         {[&] { DSP_Helpers::Normalize(taps, 0); }, "n is 0; expected at least one value"},
         {[&] { DSP_Helpers::Normalize(nullptr, 2); }, "a is null; expected an array of n values"}});
}

TEST(DspHelpersInterp1q, JoinsItsPointsByStraightLines)
{
    const double x[] = {-1.0, 0.0, 4.0, 5.0};
    const double y[] = {2.0, 1.0, 3.0, kInfinity};
    const double xi[] = {4.0, 3.0, -1.0, -0.25, 5.0, 4.5};
    const std::vector<double> expected{3.0, 2.5, 2.0, 1.25, kInfinity, kInfinity};
    EXPECT_EQ(Take(DSP_Helpers::interp1q(x, y, 4, xi, 6), 6), expected);
    const double outside[] = {5.000001, -1.000001, kNan};
    for (const double value : Take(DSP_Helpers::interp1q(x, y, 4, outside, 3), 3))
        EXPECT_TRUE(std::isnan(value)) << value;
    EXPECT_TRUE(std::isnan(Take(DSP_Helpers::interp1q(nullptr, nullptr, 0, x, 1), 1)[0]));
    const double rising[] = {0.0, 1.0, 1.0};
    ExpectEachRefused(
        "DSP_Helpers::interp1q: ",
        {{[&] { DSP_Helpers::interp1q(rising, rising, 3, rising, 1); }, "x[2] is 1; expected ascending abscissae"},
         {[&] { DSP_Helpers::interp1q(&kNan, rising, 1, rising, 1); }, "x[0] is nan; expected ascending abscissae"},
         {[&] { DSP_Helpers::interp1q(rising, rising, -1, rising, 1); }, "n is -1; expected 0 or more values"},
         {[&] { DSP_Helpers::interp1q(rising, nullptr, 1, rising, 1); }, "y is null; expected an array of n values"},
         {[&] { DSP_Helpers::interp1q(rising, rising, 1, nullptr, 1); }, "xi is null; expected an array of m values"},
         {[&] { DSP_Helpers::interp1q(rising, rising, 1, rising, -2); }, "m is -2; expected 0 or more values"}});
}

TEST(PrbsCircularShift, RotatesEitherWayByAnyNumber)
{
    const struct {
        int shift;
        bool left;
        std::vector<double> rotated;
    } cases[] = {{2, false, {4, 5, 0, 1, 2, 3}},
                 {8, true, {2, 3, 4, 5, 0, 1}},
                 {0, false, {0, 1, 2, 3, 4, 5}},
                 {INT_MIN, false, {2, 3, 4, 5, 0, 1}}};
    for (const auto& [shift, left, rotated] : cases) {
        std::vector<double> data{0, 1, 2, 3, 4, 5};
        PRBS::CircularShiftOptim(shift, data.data(), 6, left);
        EXPECT_EQ(data, rotated) << shift;
    }
    PRBS::CircularShiftOptim(3, nullptr, 0, false);
    ExpectRefused([] { PRBS::CircularShiftOptim(1, nullptr, 6, false); },
                  "PRBS::CircularShiftOptim: data is null; expected an array of length values");
}

TEST(FrontErrors, NameOperationAndValueAndWriteNothing)
{
    int length = 77;
    bool applied = true;
    double samples[] = {1.0, 2.0, 3.0};
    Complex bin(1.0, 2.0);
    FFTIFFT& fft = FFTIFFT_Factory::GetInstance();
    ExpectEachRefused("FFTIFFT::",
                      {{[&] { fft.FFT(&bin, -1); }, "FFT: count is -1; expected 0 or more values"},
                       {[&] { fft.IFFT(nullptr, 1, true); }, "IFFT: data is null; expected an array of count values"}});
    fft.FFT(&bin, 0);
    fft.IFFT(nullptr, 0, true);
    ExpectRefused([&] { DSP_Helpers::preserve_noise_TF(nullptr, samples, 3, 0.5, 2.0, applied); },
                  "DSP_Helpers::preserve_noise_TF: response is null; expected an array of count values");

    const auto design = [&](double rate, double bandwidth, int perUi, int count, double droopDb, double droopGHz) {
        return [=, &length] {
            GaussianFilter::GetGaussianFilter_A(length, rate, bandwidth, perUi, count, true, droopDb, droopGHz);
        };
    };
    const std::string rate = "baudRateGBd is 0; expected a finite positive symbol rate in GBd";
    ExpectEachRefused("GaussianFilter::GetGaussianFilter_A: ",
                      {{design(0, 80, 16, 64, 1, 1), rate},
                       {design(26, -1, 16, 64, 1, 1), "bandwidth is -1; expected a finite positive bandwidth in GHz"},
                       {design(26, 80, 0, 64, 1, 1), "samplesPerUi is 0; expected at least 1 sample per UI"},
                       {design(26, 80, 16, 0, 1, 1), "workingLength is 0; expected at least 1 tap"},
                       {design(26, 80, 16, 64, 0, 1), "droopDb is 0; expected a finite positive loss in dB"},
                       {design(26, 80, 16, 64, 1, -2), "droopGHz is -2; expected a finite positive frequency in GHz"}});
    ExpectEachRefused(
        "GaussianFilter::ApplyGaussianFilter: ",
        {{[&] { GaussianFilter::ApplyGaussianFilter(samples, 3, 0, 40, 16); }, rate},
         {[&] { GaussianFilter::ApplyGaussianFilter(samples, 0, 26, 40, 16); }, "n is 0; expected at least 1 sample"},
         {[&] { GaussianFilter::ApplyGaussianFilter(nullptr, 3, 26, 40, 16); },
          "x is null; expected an array of n samples"}});

    const auto ideal = [&](double low, const char* symbols, int perUi, E_SIGNAL_CODING coding, double edge) {
        return [=, &length] {
            PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD(length, low, 1.0, symbols, perUi, coding, edge);
        };
    };
    ExpectEachRefused(
        "PRBS::GetIdealSignalFromPrbsSymbols_withoutGrayCodingD: ",
        {{ideal(kNan, "01", 8, SIGNAL_CODING_NRZ, 0), "low is nan; expected a finite level"},
         {ideal(0, "", 8, SIGNAL_CODING_NRZ, 0), "symbols is empty; expected at least one symbol"},
         {ideal(0, "0324", 8, SIGNAL_CODING_PAM4, 0), "symbols[3] is '4'; expected '0' to '3'"},
         {ideal(0, "1x", 8, SIGNAL_CODING_UNKNOWN, 0), "symbols[1] is 'x'; expected '0' to '1'"},
         {ideal(0, "01", 0, SIGNAL_CODING_NRZ, 0), "samplesPerUi is 0; expected at least 1 sample per UI"},
         {ideal(0, "01", 1 << 30, SIGNAL_CODING_NRZ, 0),
          "samplesPerUi is 1073741824; expected at most 1073741823, so that the samples can be counted"},
         {ideal(0, "01", 8, SIGNAL_CODING_NRZ, 1.5), "edge is 1.5; expected 0 to 1 UI"}});
    EXPECT_EQ(length, 77);
    EXPECT_TRUE(applied);
    EXPECT_EQ(bin, Complex(1.0, 2.0));
}

TEST(ReferenceEqualizerErrors, NameTheValueAndWriteNothing)
{
    std::vector<double> taps(3, 7.0);
    std::vector<double> capture = RandomValues(32, 1);
    std::vector<double> constant = Constant(1, 32);
    std::vector<double> levels = Tiled({1, 1, 1, 1, 0, 0, 0, 0}, 4);
    std::vector<double> broken = levels;
    broken[7] = kNan;
    std::vector<double> noise = RandomValues(32, 2);
    struct Call {
        std::vector<double>* capture;
        std::vector<double>* reference;
        int captureLength = 32, referenceLength = 32, numberOfTaps = 3, samplesPerUi = 4, cursor = -1, room = 3;
    };
    const auto generate = [&taps](Call c) {
        return [&taps, c] {
            DSP_Helpers::GenerateTdecqEqualizerCoefficients(c.capture ? c.capture->data() : nullptr, c.captureLength,
                                                            c.reference->data(), c.referenceLength, c.numberOfTaps,
                                                            c.samplesPerUi, c.cursor, taps.data(), c.room);
        };
    };
    ExpectEachRefused(
        "DSP_Helpers::GenerateTdecqEqualizerCoefficients: ",
        {{generate({&capture, &levels, 31}), "captureLength is 31; expected a positive multiple of samplesPerUi, 4"},
         {generate({&capture, &levels, 32, 28}), "referenceLength is 28; expected captureLength, 32"},
         {generate({&capture, &levels, 32, 32, 3, 0}), "samplesPerUi is 0; expected at least 1"},
         {generate({&capture, &levels, 32, 32, 0}), "numberOfTaps is 0; expected at least 1"},
         {generate({&capture, &levels, 32, 32, 3, 4, -1, 2}), "tapsLength is 2; expected at least numberOfTaps, 3"},
         {generate({&capture, &levels, 32, 32, 3, 4, 3}),
          "mainCursorIndex is 3; expected below numberOfTaps, 3, or negative"},
         {generate({&constant, &levels}), "capture is constant; expected a waveform that is not constant"},
         {generate({&capture, &noise}), "number of levels in the reference is outside its range; expected 2 to 4"},
         {generate({&capture, &broken}), "reference is not finite; expected finite values"},
         {generate({nullptr, &levels}), "capture is null; expected an array of values"}});
    EXPECT_EQ(taps, Constant(7.0, 3));
}

}  // namespace
