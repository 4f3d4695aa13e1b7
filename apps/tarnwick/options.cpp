#include "options.h"

#include <algorithm>
#include <iterator>

#include <fmt/format.h>

#include "workbench/symbols.h"

namespace Tarnwick::App {

namespace {

using DSO::Workbench::NameOf;

constexpr E_SIGNAL_CODING kCodings[] = {SIGNAL_CODING_NRZ, SIGNAL_CODING_PAM3, SIGNAL_CODING_PAM4,
                                        SIGNAL_CODING_PAM4_PRECODED};

}  // namespace

CLI::Validator RealRange(double low, double high)
{
    return {[low, high](std::string& text) {
                double value = 0.0;
                // Written so that NaN, which compares as false, is refused.
                if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high)
                    return std::string();
                return fmt::format("is {}; expected a number from {} to {}", text, low, high);
            },
            fmt::format("FLOAT in [{} - {}]", low, high)};
}

std::vector<std::string> CodingNames(Precoded precoded)
{
    std::vector<std::string> names;
    for (const E_SIGNAL_CODING coding : kCodings)
        if (coding != SIGNAL_CODING_PAM4_PRECODED || precoded == Precoded::Yes)
            names.push_back(NameOf(coding));
    return names;
}

E_SIGNAL_CODING CodingNamed(const std::string& name)
{
    const auto* coding = std::find_if(std::begin(kCodings), std::end(kCodings),
                                      [&](E_SIGNAL_CODING each) { return NameOf(each) == name; });
    return coding == std::end(kCodings) ? SIGNAL_CODING_UNKNOWN : *coding;
}

}  // namespace Tarnwick::App
