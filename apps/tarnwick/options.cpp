#include "options.h"

#include <string>

#include <fmt/format.h>

namespace Tarnwick::App {

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

}  // namespace Tarnwick::App
