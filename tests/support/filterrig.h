// A configuration, the parameters made from it and the filter on them, which hold on to each other.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "filters/apply.h"
#include "framework/basefilter.h"
#include "framework/deviceconfiguration.h"
#include "support/signals.h"

namespace Tarnwick::Testing {

template <typename FilterClass, typename ParametersClass>
struct FilterRig {
    struct Later {};
    /// The filter is constructed by the first call of Filter().
    FilterRig(DSO::DeviceConfiguration configuration, Later) : config(std::move(configuration)), parameters(&config) {}
    /// The filter is constructed on the parameters as `set` leaves them.
    explicit FilterRig(DSO::DeviceConfiguration configuration, const std::function<void(ParametersClass&)>& set = {})
        : FilterRig(std::move(configuration), Later())
    {
        if (set)
            set(parameters);
        filter.emplace(&parameters);
    }
    FilterRig(const FilterRig&) = delete;
    FilterRig& operator=(const FilterRig&) = delete;

    FilterClass& Filter() { return filter ? *filter : filter.emplace(&parameters); }
    void Prepare(const std::vector<double>& samples = {})
    {
        Record record(samples);
        static_cast<DSO::SystemFramework::BaseFilter&>(Filter()).Prepare(&record);
    }
    std::vector<double> Apply(const std::vector<double>& samples) { return DSO::Filters::Filtered(Filter(), samples); }
    std::vector<double> Kernel(std::size_t count) { return {Filter().kernel, Filter().kernel + count}; }

    DSO::DeviceConfiguration config;
    ParametersClass parameters;
    std::optional<FilterClass> filter;
};

}  // namespace Tarnwick::Testing
