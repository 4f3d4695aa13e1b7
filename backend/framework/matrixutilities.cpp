#include "framework/matrixutilities.h"

#include <algorithm>
#include <limits>
#include <string>
#include <type_traits>
#include <utility>

#include <Eigen/Core>
#include <Eigen/LU>

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::SystemFramework {

namespace {

template <typename Value>
using Dense = Eigen::Matrix<Value, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;
template <typename Value>
using Rows = std::vector<std::vector<Value>>;

struct Shape {
    int rows;
    int columns;
    std::size_t Count() const { return static_cast<std::size_t>(rows) * static_cast<std::size_t>(columns); }
};

Eigen::Map<const Dense<double>> Checked(const char* operation, const std::string& name, const double* values,
                                        Shape shape)
{
    if (shape.rows < 1)
        Refuse(operation, "rows of " + name, shape.rows, "at least 1");
    if (shape.columns < 1)
        Refuse(operation, "columns of " + name, shape.columns, "at least 1");
    if (values == nullptr)
        Refuse(operation, name, "null", "an array of rows * columns values");
    return {values, shape.rows, shape.columns};
}

template <typename Value>
Dense<Value> Checked(const char* operation, const std::string& name, const Rows<Value>& rows)
{
    const std::size_t columns = rows.empty() ? 0 : rows.front().size();
    Dense<Value> dense(rows.size(), columns);
    for (std::size_t r = 0; r < rows.size(); ++r) {
        if (rows[r].size() != columns)
            Refuse(operation, "length of row " + std::to_string(r) + " of " + name, rows[r].size(),
                   std::to_string(columns) + ", that of row 0");
        for (std::size_t c = 0; c < columns; ++c)
            dense(static_cast<Eigen::Index>(r), static_cast<Eigen::Index>(c)) = rows[r][c];
    }
    return dense;
}

void RequireProduct(const char* operation, Eigen::Index columns, Eigen::Index rows)
{
    if (columns != rows)
        Refuse(operation, "columns of a", columns, std::to_string(rows) + ", the rows of b");
}

template <typename Value>
Rows<Value> RowsOf(const Dense<Value>& dense)
{
    Rows<Value> rows;
    for (const auto& row : dense.rowwise())
        rows.emplace_back(row.begin(), row.end());
    return rows;
}

// Sized by the caller, so that the result is computed in the array that is handed out.
template <typename Expression>
double* NewArrayOf(const Expression& expression, Shape shape)
{
    OwnedArray result = NewArray(shape.Count());
    Eigen::Map<Dense<double>>(result.get(), shape.rows, shape.columns).noalias() = expression;
    return result.release();
}

// A real and a complex factor: its parts by themselves, so that all products here are of one kind, which takes seconds less to
// compile.
template <typename Left, typename Right>
Rows<std::complex<double>> Product(const char* operation, const Rows<Left>& a, const Rows<Right>& b)
{
    const Dense<Left> left = Checked(operation, "a", a);
    const Dense<Right> right = Checked(operation, "b", b);
    RequireProduct(operation, left.cols(), right.rows());
    // A copy of the real part of a complex factor; a real factor itself.
    const Dense<double>& leftReal = left.real();
    const Dense<double>& rightReal = right.real();
    Dense<std::complex<double>> product(left.rows(), right.cols());
    product.real() = leftReal * rightReal;
    if constexpr (std::is_same_v<Left, double>)
        product.imag() = leftReal * Dense<double>(right.imag());
    else
        product.imag() = Dense<double>(left.imag()) * rightReal;
    return RowsOf(product);
}

}  // namespace

double* MatrixUtilities::MatrixTranspose(const double* matrix, int rows, int columns)
{
    const auto dense = Checked("MatrixUtilities::MatrixTranspose", "matrix", matrix, {rows, columns});
    return NewArrayOf(dense.transpose(), {columns, rows});
}

MatrixUtilities::RealMatrix MatrixUtilities::MatrixTranspose(const RealMatrix& matrix)
{
    return RowsOf<double>(Checked("MatrixUtilities::MatrixTranspose", "matrix", matrix).transpose());
}

double* MatrixUtilities::MultiplyDoubleMatrices(const double* a, int aRows, int aColumns, const double* b, int bRows,
                                                int bColumns)
{
    constexpr const char* kOperation = "MatrixUtilities::MultiplyDoubleMatrices";
    const auto left = Checked(kOperation, "a", a, {aRows, aColumns});
    const auto right = Checked(kOperation, "b", b, {bRows, bColumns});
    RequireProduct(kOperation, left.cols(), right.rows());
    return NewArrayOf(left * right, {aRows, bColumns});
}

MatrixUtilities::ComplexMatrix MatrixUtilities::MultiplyDoubleComplexMatrix(const RealMatrix& a, const ComplexMatrix& b)
{
    return Product("MatrixUtilities::MultiplyDoubleComplexMatrix", a, b);
}

MatrixUtilities::ComplexMatrix MatrixUtilities::MultiplyComplexDoubleMatrix(const ComplexMatrix& a, const RealMatrix& b)
{
    return Product("MatrixUtilities::MultiplyComplexDoubleMatrix", a, b);
}

double* MatrixUtilities::MatrixInverse(const double* matrix, int size)
{
    constexpr const char* kOperation = "MatrixUtilities::MatrixInverse";
    const auto dense = Checked(kOperation, "matrix", matrix, {size, size});
    if (!dense.allFinite())
        return NewArrayOf(Dense<double>::Constant(size, size, std::numeric_limits<double>::quiet_NaN()), {size, size});
    const Eigen::FullPivLU<Dense<double>> factors(dense);
    if (!factors.isInvertible())
        Refuse(kOperation, "rank of the matrix", factors.rank(),
               std::to_string(size) + ", that of one with an inverse");
    return NewArrayOf(factors.inverse(), {size, size});
}

MatrixUtilities::ComplexMatrix MatrixUtilities::ComplexMatrixSwapRows(const ComplexMatrix& matrix, int first,
                                                                      int second)
{
    const std::string expected = "0 to " + std::to_string(matrix.size() - 1);
    for (const auto& [name, row] : {std::pair{"first", first}, std::pair{"second", second}})
        if (row < 0 || static_cast<std::size_t>(row) >= matrix.size())
            Refuse("MatrixUtilities::ComplexMatrixSwapRows", name, row,
                   matrix.empty() ? "a matrix with rows" : expected);
    ComplexMatrix swapped = matrix;
    std::swap(swapped[static_cast<std::size_t>(first)], swapped[static_cast<std::size_t>(second)]);
    return swapped;
}

void MatrixUtilities::reverse(double* values, int count)
{
    if (count <= 0)
        return;
    if (values == nullptr)
        Refuse("MatrixUtilities::reverse", "values", "null", "an array of count values");
    std::reverse(values, values + count);
}

}  // namespace Tarnwick::DSO::SystemFramework
