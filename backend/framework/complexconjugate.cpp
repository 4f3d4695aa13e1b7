#include "framework/complexconjugate.h"

namespace Tarnwick::DSO::SystemFramework {

std::complex<double> ComplexConjugate::complexConjugate(std::complex<double> value)
{
    return std::conj(value);
}

}  // namespace Tarnwick::DSO::SystemFramework
