// What each method of CircularConvolver implements.
#pragma once

#include <span>

#include "maths/convolution/circularconvolver.h"

namespace Tarnwick::DSO::Maths {

class CircularConvolver::Engine {
public:
    Engine() = default;
    Engine(const Engine&) = delete;
    Engine& operator=(const Engine&) = delete;
    virtual ~Engine() = default;
    /// samples and result hold one period each; every value of the result is written.
    virtual void Convolve(std::span<const double> samples, std::span<double> result, ConvolutionWork& work) const = 0;
};

}  // namespace Tarnwick::DSO::Maths
