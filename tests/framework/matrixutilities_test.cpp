#include "framework/matrixutilities.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>
#include <vector>

#include "support/expectations.h"

namespace {

using namespace Tarnwick::DSO::SystemFramework;
using namespace Tarnwick::Testing;

using Complex = std::complex<double>;
using RealMatrix = MatrixUtilities::RealMatrix;
using ComplexMatrix = MatrixUtilities::ComplexMatrix;

TEST(MatrixUtilities, TransposesAndMultipliesRowMajorArrays)
{
    const std::vector<double> a{1, 2, 3, 4, 5, 6};                       // 2 x 3
    const std::vector<double> b{1, 0, -1, 2, 0.5, 1, 0, 3, 2, 1, 1, 1};  // 3 x 4
    EXPECT_EQ(Take(MatrixUtilities::MatrixTranspose(a.data(), 2, 3), 6), std::vector<double>({1, 4, 2, 5, 3, 6}));
    EXPECT_EQ(Take(MatrixUtilities::MultiplyDoubleMatrices(a.data(), 2, 3, b.data(), 3, 4), 8),
              std::vector<double>({8, 5, 2, 11, 18.5, 11, 2, 29}));
}

TEST(MatrixUtilities, InvertsWithPivotsAndLetsNanThrough)
{
    const double exchange[] = {0, 2, 0, 0, 0, 1, 4, 0, 0};
    EXPECT_EQ(Take(MatrixUtilities::MatrixInverse(exchange, 3), 9),
              std::vector<double>({0, 0, 0.25, 0.5, 0, 0, 0, 1, 0}));
    const double general[] = {2, 1, 0, 1, 2, 1, 0, 1, 2};
    const std::vector<double> inverse{0.75, -0.5, 0.25, -0.5, 1, -0.5, 0.25, -0.5, 0.75};
    EXPECT_TRUE(AreNear(Take(MatrixUtilities::MatrixInverse(general, 3), 9), inverse, 8 * DBL_EPSILON));
    const double broken[] = {1, std::numeric_limits<double>::quiet_NaN(), 0, 1};
    for (const double value : Take(MatrixUtilities::MatrixInverse(broken, 2), 4))
        EXPECT_TRUE(std::isnan(value));
}

TEST(MatrixUtilities, WorksOnVectorsOfRowsAndReversesArrays)
{
    const Complex j(0.0, 1.0);
    const RealMatrix real{{1, -1}, {0, 2}, {3, 0}};
    const ComplexMatrix complex{{1.0 + j, 2.0}, {-j, 4.0 * j}};
    EXPECT_EQ(MatrixUtilities::MatrixTranspose(real), RealMatrix({{1, 0, 3}, {-1, 2, 0}}));
    EXPECT_EQ(MatrixUtilities::MultiplyDoubleComplexMatrix(real, complex),
              ComplexMatrix({{1.0 + 2.0 * j, 2.0 - 4.0 * j}, {-2.0 * j, 8.0 * j}, {3.0 + 3.0 * j, 6.0}}));
    EXPECT_EQ(MatrixUtilities::MultiplyComplexDoubleMatrix(complex, {{1, 2, 0}, {0, 1, -1}}),
              ComplexMatrix({{1.0 + j, 4.0 + 2.0 * j, -2.0}, {-j, 2.0 * j, -4.0 * j}}));
    EXPECT_EQ(MatrixUtilities::ComplexMatrixSwapRows(complex, 0, 1), ComplexMatrix({complex[1], complex[0]}));
    EXPECT_EQ(MatrixUtilities::MatrixTranspose(RealMatrix{}), RealMatrix{});
    double values[] = {1, 2, 3, 4};
    MatrixUtilities::reverse(values, 3);
    EXPECT_EQ(std::vector(values, values + 4), std::vector<double>({3, 2, 1, 4}));
    MatrixUtilities::reverse(nullptr, 0);
}

TEST(MatrixUtilitiesErrors, NameOperationAndValue)
{
    const double values[9] = {1, 2, 3, 4, 5, 6, 7, 8, 9};
    const ComplexMatrix complex{{1.0, 2.0}, {3.0, 4.0}};
    const struct {
        std::function<void()> call;
        std::string text;
    } cases[] = {
        {[&] { MatrixUtilities::MatrixTranspose(values, 0, 3); },
         "MatrixTranspose: rows of matrix is 0; expected at least 1"},
        {[&] { MatrixUtilities::MatrixTranspose(values, 3, -1); },
         "MatrixTranspose: columns of matrix is -1; expected at least 1"},
        {[&] {
             MatrixUtilities::MatrixTranspose({{1, 2}, {3}});
         },
         "MatrixTranspose: length of row 1 of matrix is 1; expected 2, that of row 0"},
        {[&] { MatrixUtilities::MultiplyDoubleMatrices(values, 3, 3, nullptr, 3, 3); },
         "MultiplyDoubleMatrices: b is null; expected an array of rows * columns values"},
        {[&] { MatrixUtilities::MultiplyDoubleMatrices(values, 3, 3, values, 2, 3); },
         "MultiplyDoubleMatrices: columns of a is 3; expected 2, the rows of b"},
        {[&] {
             MatrixUtilities::MultiplyComplexDoubleMatrix(complex, {{1, 2}});
         },
         "MultiplyComplexDoubleMatrix: columns of a is 2; expected 1, the rows of b"},
        {[&] { MatrixUtilities::MatrixInverse(values, 3); },
         "MatrixInverse: rank of the matrix is 2; expected 3, that of one with an inverse"},
        {[&] { MatrixUtilities::ComplexMatrixSwapRows(complex, 0, 2); },
         "ComplexMatrixSwapRows: second is 2; expected 0 to 1"},
        {[&] { MatrixUtilities::ComplexMatrixSwapRows({}, 0, 0); },
         "ComplexMatrixSwapRows: first is 0; expected a matrix with rows"},
        {[&] { MatrixUtilities::reverse(nullptr, 2); }, "reverse: values is null; expected an array of count values"},
    };
    for (const auto& each : cases)
        ExpectRefused(each.call, "MatrixUtilities::" + each.text);
}

}  // namespace
