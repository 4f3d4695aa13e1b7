#pragma once

#include <complex>
#include <vector>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

/// Products, transposes and inverses. Matrices are row-major: arrays of rows * columns values, or vectors of rows of
/// one length. Results are new; arrays are released by the caller with ::operator delete. NaN and infinity flow through.
class TARNWICK_FRAMEWORK_API MatrixUtilities {
public:
    using RealMatrix = std::vector<std::vector<double>>;
    using ComplexMatrix = std::vector<std::vector<std::complex<double>>>;

    /// @return new array, columns x rows
    /// @throws std::invalid_argument  rows or columns is below 1, or the matrix is null
    static double* MatrixTranspose(const double* matrix, int rows, int columns);
    /// @throws std::invalid_argument  the rows differ in length
    static RealMatrix MatrixTranspose(const RealMatrix& matrix);

    /// The product of two real matrices.
    /// @return new array, aRows x bColumns
    /// @throws std::invalid_argument  a count is below 1, a matrix is null, or aColumns is not bRows
    static double* MultiplyDoubleMatrices(const double* a, int aRows, int aColumns, const double* b, int bRows,
                                          int bColumns);
    /// @throws std::invalid_argument  the rows of a matrix differ in length, or a has not as many columns as b has rows
    static ComplexMatrix MultiplyDoubleComplexMatrix(const RealMatrix& a, const ComplexMatrix& b);
    /// @throws std::invalid_argument  the rows of a matrix differ in length, or a has not as many columns as b has rows
    static ComplexMatrix MultiplyComplexDoubleMatrix(const ComplexMatrix& a, const RealMatrix& b);

    /// The inverse, by elimination with complete pivoting (G. H. Golub, C. F. Van Loan, "Matrix Computations", 4th ed.,
    /// section 3.4). All NaN when a value is not finite.
    /// @return new array, size x size
    /// @throws std::invalid_argument  size is below 1, or the matrix is null or, within rounding, singular
    static double* MatrixInverse(const double* matrix, int size);

    /// The matrix with two rows, counted from 0, exchanged.
    /// @throws std::invalid_argument  there is no such row
    static ComplexMatrix ComplexMatrixSwapRows(const ComplexMatrix& matrix, int first, int second);

    /// Reverses an array in place. A count of 0 or less: nothing.
    /// @throws std::invalid_argument  values is null though count is positive
    static void reverse(double* values, int count);
};

}  // namespace Tarnwick::DSO::SystemFramework
