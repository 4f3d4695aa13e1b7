#include "arrays.h"

#include <cstdint>
#include <limits>

namespace Tarnwick::Python {

namespace {

// Every value of such a type is a float64 to within its own rounding; bool, complex and text are not voltages.
bool IsReal(const py::dtype& type)
{
    constexpr py::ssize_t kWidest = sizeof(double);
    const char kind = type.kind();
    return (kind == 'f' || kind == 'i' || kind == 'u') && type.itemsize() <= kWidest;
}

// Checked before a copy is made: a view may claim far more samples than there is memory.
py::array Checked(const std::string& owner, const py::object& given)
{
    constexpr py::ssize_t kMostSamples = std::numeric_limits<std::int32_t>::max();
    py::array array(given);
    if (!IsReal(array.dtype()))
        throw py::type_error(owner + ": samples have dtype " + py::str(array.dtype()).cast<std::string>() +
                             "; expected float64, or real numbers that convert to it without loss");
    if (array.ndim() != 1)
        throw py::value_error(owner + ": samples have shape " + py::str(array.attr("shape")).cast<std::string>() +
                              "; expected one dimension");
    if (array.size() > kMostSamples)
        throw py::value_error(owner + ": samples are " + std::to_string(array.size()) + "; expected at most " +
                              std::to_string(kMostSamples));
    return array;
}

}  // namespace

Samples::Samples(const std::string& owner, const py::object& given) : array_(Checked(owner, given))
{
    constexpr auto kAligned = static_cast<int>(py::detail::npy_api::NPY_ARRAY_ALIGNED_);
    if ((array_.flags() & kAligned) == 0)  // a field of a packed record
        array_ = py::array_t<double, py::array::c_style>(array_.attr("copy")());
}

py::array_t<double> Adopt(ApplyResult result, std::size_t count)
{
    double* const data = result.get();
    const py::capsule owner(data, [](void* array) { ApplyRelease()(static_cast<double*>(array)); });
    (void)result.release();
    return py::array_t<double>(static_cast<py::ssize_t>(count), data, owner);
}

py::array_t<double> View(std::span<const double> values, const py::object& owner)
{
    return py::array_t<double>(static_cast<py::ssize_t>(values.size()), values.data(), owner);
}

}  // namespace Tarnwick::Python
