// One filter on arrays: what the Python classes of the filters are made of.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "arrays.h"
#include "workbench/chain.h"

namespace Tarnwick::Python {

/// A filter with its parameters and configuration, set by the keys of a chain file. It may be called from several threads:
/// they take turns.
class Filter {
public:
    /// @param name    of the class, for messages
    /// @param device  the configuration: JSON with the keys of a chain file's device
    /// @param fields  the parameters: JSON with the keys of the filter and its "type"
    /// @throws UsageFailure  @throws DataFailure  naming the field
    Filter(std::string name, const std::string& device, const std::string& fields);

    /// @return as many values, owned by the array
    py::array_t<double> Apply(const py::object& given);

    /// What the filter has found, as a JSON object.
    /// @param filtered  what it has made of the record
    std::string Findings(const py::object& filtered);

    /// What was assumed, and what has no effect.
    std::vector<std::string> Notes();

private:
    DSO::Workbench::ChainFile FileFor(std::size_t sampleCount) const;
    DSO::Workbench::Stage& StageFor(std::size_t sampleCount);

    std::string name_;
    nlohmann::json device_;
    nlohmann::json fields_;
    std::mutex busy_;  // taken without the interpreter lock, so that a thread that waits for it holds up no other
    std::size_t sampleCount_ = 0;
    std::unique_ptr<DSO::Workbench::Chain> chain_;
};

/// Registers Filter.
void BindFilter(py::module_& module);

}  // namespace Tarnwick::Python
