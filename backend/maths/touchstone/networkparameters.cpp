#include "maths/touchstone/networkparameters.h"

#include <cmath>

#include <Eigen/Eigenvalues>
#include <Eigen/LU>

namespace Tarnwick::DSO::Maths {

namespace {

using Complex = std::complex<double>;
using Matrix = Eigen::Matrix<Complex, Eigen::Dynamic, Eigen::Dynamic, Eigen::RowMajor>;

Eigen::Index PortsOf(std::span<const Complex> values)
{
    return static_cast<Eigen::Index>(std::lround(std::sqrt(static_cast<double>(values.size()))));
}

}  // namespace

double LargestSingularValue(std::span<const Complex> values)
{
    const Eigen::Index ports = PortsOf(values);
    const Eigen::Map<const Matrix> matrix(values.data(), ports, ports);
    // The largest one suffers nothing from its square, and a Hermitian matrix is taken apart several times as fast.
    const double scale = matrix.cwiseAbs().maxCoeff();
    if (!(scale > 0.0) || !std::isfinite(scale))
        return scale;
    const Matrix scaled = matrix / scale;
    // Complex down to the tridiagonal form alone: the complex solver's eigenvectors, which nobody asks for, take seconds to
    // compile.
    const Matrix normal = scaled.adjoint() * scaled;
    const double largest = normal.cwiseAbs().maxCoeff();
    const Eigen::Tridiagonalization<Matrix> tridiagonal(normal / largest);
    Eigen::SelfAdjointEigenSolver<Eigen::MatrixXd> squares;
    squares.computeFromTridiagonal(tridiagonal.diagonal(), tridiagonal.subDiagonal(), Eigen::EigenvaluesOnly);
    return scale * std::sqrt(largest * squares.eigenvalues()(ports - 1));
}

std::optional<std::vector<Complex>> ScatteringFrom(char kind, std::span<const Complex> values)
{
    const Eigen::Index ports = PortsOf(values);
    const bool isHybrid = kind == 'H' || kind == 'G';
    if (isHybrid && ports != 2)
        return std::nullopt;
    const Matrix parameters = Eigen::Map<const Matrix>(values.data(), ports, ports);
    const Matrix identity = Matrix::Identity(ports, ports);
    const Eigen::FullPivLU<Matrix> sum(parameters + identity);
    if (!sum.isInvertible())
        return std::nullopt;
    Matrix scattering = sum.solve(parameters - identity);
    for (Eigen::Index port = 0; port < ports; ++port) {
        const bool drivenByVoltage = isHybrid ? (kind == 'G') == (port == 0) : kind == 'Y';
        if (drivenByVoltage)
            scattering.row(port) = -scattering.row(port);
    }
    return std::vector<Complex>(scattering.data(), scattering.data() + scattering.size());
}

}  // namespace Tarnwick::DSO::Maths
