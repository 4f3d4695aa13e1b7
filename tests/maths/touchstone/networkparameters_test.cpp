#include "maths/touchstone/networkparameters.h"

#include <gtest/gtest.h>

namespace Tarnwick::DSO::Maths {

namespace {

using Complex = std::complex<double>;

// A series impedance z has H = [z 1; -1 0], G = [0 -1; 1 z], Y = [1 -1; -1 1]/z and S = [z 2; 2 z]/(z + 2); a shunt
// admittance y has Z = [1 1; 1 1]/y and S = [-y 2; 2 -y]/(y + 2).
TEST(NetworkParameters, BecomeThoseOfASeriesAndAShuntElement)
{
    const Complex z(3.0, -1.0);
    const Complex one = 1.0;
    const std::vector<Complex> series = {z / (z + 2.0), 2.0 / (z + 2.0), 2.0 / (z + 2.0), z / (z + 2.0)};
    std::vector<Complex> shunt = series;
    shunt[0] = shunt[3] = -series[0];
    const auto expect = [](const std::vector<Complex>& expected, char kind, const std::vector<Complex>& values) {
        const auto found = ScatteringFrom(kind, values);
        ASSERT_TRUE(found);
        for (std::size_t k = 0; k < 4; ++k)  // some tens of roundings of numbers near 1
            EXPECT_LT(std::abs((*found)[k] - expected[k]), 1e-14) << kind << " " << k;
    };
    expect(series, 'H', {z, one, -one, 0.0});
    expect(series, 'G', {0.0, -one, one, z});
    expect(series, 'Y', {one / z, -one / z, -one / z, one / z});
    expect(shunt, 'Z', {one / z, one / z, one / z, one / z});
    EXPECT_FALSE(ScatteringFrom('Z', std::vector<Complex>{-1.0}));
    EXPECT_FALSE(ScatteringFrom('G', std::vector<Complex>(16, 0.0)));
}

}  // namespace

}  // namespace Tarnwick::DSO::Maths
