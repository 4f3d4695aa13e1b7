// Eyes on arrays.
#pragma once

#include <memory>
#include <span>

#include "arrays.h"
#include "workbench/eye.h"

namespace Tarnwick::Python {

/// The eyes of a waveform, and what it takes to draw them.
class Eye {
public:
    /// @param samples   [V] the whole record
    /// @param settings  what is known of it
    /// @param owner     keeps the samples alive
    /// @throws DataFailure  no eyes can be measured: no levels known, or not found
    Eye(std::span<const double> samples, const DSO::Workbench::EyeSettings& settings,
        std::shared_ptr<const void> owner);

    const DSO::Workbench::EyeReport& Report() const { return report_; }
    double SamplesPerUi() const { return samplesPerUi_; }
    /// (shades [rows, columns] 0 to 1, low [V], high [V]): a density eye two UI wide.
    py::tuple Image(std::size_t columns, std::size_t rows) const;

private:
    DSO::Workbench::EyeReport report_;
    std::span<const double> shown_;
    double samplesPerUi_;
    std::shared_ptr<const void> owner_;
};

/// Registers Eye.
void BindEye(py::module_& module);

}  // namespace Tarnwick::Python
