#pragma once

#include <complex>

#include "framework/export.h"

namespace Tarnwick::DSO::SystemFramework {

class TARNWICK_FRAMEWORK_API ComplexConjugate {
public:
    static std::complex<double> complexConjugate(std::complex<double> value);
};

}  // namespace Tarnwick::DSO::SystemFramework
