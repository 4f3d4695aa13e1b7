// Arrays on their way between NumPy and the library: the only place that knows who owns which.
#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>

namespace Tarnwick::Python {

namespace py = pybind11;

/// What a filter's Apply returns, released as the library asks for it.
struct ApplyRelease {
    void operator()(double* array) const noexcept { ::operator delete(array); }
};
using ApplyResult = std::unique_ptr<double[], ApplyRelease>;

/// A record that Python passes in, held while it is read. Contiguous float64 is taken as it is; anything else that converts
/// to float64 without loss is copied once.
class Samples {
public:
    /// @param owner  for messages: what takes the record
    /// @param given  any object that NumPy makes an array of
    /// @throws py::type_error   values that are no real numbers
    /// @throws py::value_error  not one dimension, or more samples than a filter can take (2^31 - 1)
    Samples(const std::string& owner, const py::object& given);

    std::span<const double> Values() const { return {array_.data(), static_cast<std::size_t>(array_.size())}; }

private:
    py::array_t<double, py::array::c_style> array_;
};

/// An array that owns what Apply returned.
py::array_t<double> Adopt(ApplyResult result, std::size_t count);

/// An array that owns the values.
template <typename Value>
py::array_t<Value> Adopt(std::vector<Value> values, std::vector<std::size_t> shape = {})
{
    if (shape.empty())
        shape = {values.size()};
    auto owned = std::make_unique<std::vector<Value>>(std::move(values));
    Value* const data = owned->data();
    const py::capsule owner(owned.get(), [](void* vector) { delete static_cast<std::vector<Value>*>(vector); });
    (void)owned.release();
    return py::array_t<Value>(std::move(shape), data, owner);
}

/// An array over the values of an object, which it keeps alive.
py::array_t<double> View(std::span<const double> values, const py::object& owner);

}  // namespace Tarnwick::Python
