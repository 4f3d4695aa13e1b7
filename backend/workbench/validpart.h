// The part of a record that figures may come from.
#pragma once

#include <cstddef>
#include <span>

namespace Tarnwick::DSO::Workbench {

/// Samples of a record that neither its ends nor the seam of a filter have touched.
struct ValidPart {
    std::size_t first = 0;
    std::size_t count = 0;

    std::span<const double> Of(std::span<const double> record) const { return record.subspan(first, count); }
};

}  // namespace Tarnwick::DSO::Workbench
