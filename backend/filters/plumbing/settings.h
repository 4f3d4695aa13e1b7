// What a filter asks of its parameters before anything else.
#pragma once

#include <typeinfo>

#include "framework/basefilterparameters.h"
#include "framework/deviceconfiguration.h"
#include "framework/plumbing/error.h"

namespace Tarnwick::DSO::Filters {

/// The parameters as their own class.
/// @throws std::invalid_argument  parameters is null, or that of another filter
template <typename Parameters>
Parameters& ParametersOf(const char* filter, SystemFramework::BaseFilterParameters* parameters)
{
    if (parameters == nullptr)
        SystemFramework::Refuse(filter, "parameters", "null", "a parameters object");
    auto* const own = dynamic_cast<Parameters*>(parameters);
    if (own == nullptr)
        SystemFramework::Refuse(filter, "parameters", "of another filter", "a parameters object of its own");
    return *own;
}

/// @throws std::invalid_argument  the parameters were made without a configuration
inline const DeviceConfiguration& ConfigurationOf(const char* filter,
                                                  const SystemFramework::BaseFilterParameters& parameters)
{
    const DeviceConfiguration* config = parameters.GetConfig();
    if (config == nullptr)
        SystemFramework::Refuse(filter, "configuration", "null",
                                "the device configuration, which holds the symbol rate");
    return *config;
}

/// Whether the filter is of a class that a host has derived. Its Prepare may fill in sizes on its own, so that a record can
/// be held against them only after it; before the filter's own Prepare the record is checked first.
template <typename Filter>
bool IsDerivedByHost(const Filter& filter)
{
    return typeid(filter) != typeid(Filter);
}

}  // namespace Tarnwick::DSO::Filters
