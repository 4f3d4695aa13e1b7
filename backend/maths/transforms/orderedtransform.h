// The discrete Fourier transform in our own loops, for lengths that the ring of convolutions fits. Part of the build with
// kissfft alone.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "maths/convolution/ringtransform.h"
#include "maths/transforms/fft.h"

namespace Tarnwick::DSO::Maths {

/// Lengths 2^a 3^b 5^c with a from 6 on at the most lanes.
class OrderedTransform final : public ComplexTransform {
public:
    /// Null where the ring has more points than `length`.
    static std::shared_ptr<const OrderedTransform> For(std::size_t length);
    explicit OrderedTransform(std::size_t length);
    void Forward(Complex* data) const override;
    void Inverse(Complex* data) const override;

private:
    void Transform(Complex* data, bool isInverse) const;

    RingTransform ring_;
    bool keepsWork_;
    std::vector<std::size_t> order_;
};

}  // namespace Tarnwick::DSO::Maths
