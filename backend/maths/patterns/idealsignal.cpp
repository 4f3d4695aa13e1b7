#include "maths/patterns/idealsignal.h"

#include <algorithm>
#include <cmath>

namespace Tarnwick::DSO::Maths {

std::vector<double> IdealSignal(std::span<const int> levels, Swing swing, double samplesPerUi, std::size_t count,
                                double edgeUi)
{
    const std::size_t symbols = levels.size();
    const auto valueOf = [&](std::size_t symbol) {
        return swing.low + (swing.high - swing.low) * levels[symbol] / (swing.levelCount - 1);
    };
    std::vector<double> signal(count);
    for (std::size_t m = 0; m < count; ++m) {
        const double position = static_cast<double>(m) / samplesPerUi;
        const double whole = std::floor(position);
        const std::size_t symbol = static_cast<std::size_t>(whole) % symbols;
        const double here = valueOf(symbol);
        signal[m] = here;
        if (edgeUi <= 0.0)
            continue;
        const double fraction = position - whole + 0.5 / samplesPerUi;
        if (fraction < edgeUi / 2.0) {
            const double before = valueOf((symbol + symbols - 1) % symbols);
            signal[m] = before + (here - before) * (0.5 + fraction / edgeUi);
        } else if (fraction > 1.0 - edgeUi / 2.0) {
            // Where s is not whole, the middle of the last interval may lie beyond the end of the edge.
            const double done = std::min(1.0, 0.5 + (fraction - 1.0) / edgeUi);
            signal[m] = here + (valueOf((symbol + 1) % symbols) - here) * done;
        }
    }
    return signal;
}

}  // namespace Tarnwick::DSO::Maths
