// Settings that someone else chooses: the bytes of a fuzz target.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace Tarnwick::Testing {

/// Values of the likely range, or now and then such as no host should give.
class Choices {
public:
    Choices() = default;
    Choices(const Choices&) = delete;
    Choices& operator=(const Choices&) = delete;
    virtual ~Choices() = default;

    virtual bool Flag() = 0;
    virtual double Real(double lowest, double highest) = 0;
    virtual std::int32_t Whole(std::int32_t lowest, std::int32_t highest) = 0;
    /// Never outside the range.
    virtual int Within(int lowest, int highest) = 0;
    /// Of S-parameters, a table, or something else.
    virtual std::string File() = 0;

    template <typename Enumeration>
    Enumeration One(std::int32_t highest)
    {
        return static_cast<Enumeration>(Whole(0, highest));
    }
    std::vector<double> Reals(int most, double magnitude)
    {
        std::vector<double> values(static_cast<std::size_t>(Within(0, most)));
        std::generate(values.begin(), values.end(), [&] { return Real(-magnitude, magnitude); });
        return values;
    }
};

}  // namespace Tarnwick::Testing
