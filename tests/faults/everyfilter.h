// Every filter on a small record of its own, behind one face: what holds for one filter is asked of all.
#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "filters/apply.h"
#include "framework/basefilter.h"
#include "framework/basefilterparameters.h"
#include "framework/deviceconfiguration.h"
#include "framework/signaldata.h"
#include "support/choices.h"

namespace Tarnwick::Testing {

/// A configuration, the parameters made from it, the filter on them and two captures of its pattern.
class Rig {
public:
    Rig(DSO::DeviceConfiguration configuration, std::vector<double> first, std::vector<double> second)
        : config(std::move(configuration)), first(std::move(first)), second(std::move(second))
    {
    }
    Rig(const Rig&) = delete;
    Rig& operator=(const Rig&) = delete;
    virtual ~Rig() = default;

    virtual DSO::SystemFramework::BaseFilter& Filter() = 0;
    virtual DSO::SystemFramework::BaseFilterParameters& Parameters() = 0;
    virtual void Prepare(DSO::SystemFramework::SignalData* signal) = 0;
    /// Other settings, or those it was made with; the parameters are dirty afterwards.
    virtual void Change(bool other) = 0;
    /// What Prepare has left: kernel, taps, delay.
    virtual std::vector<double> Prepared() = 0;
    virtual std::unique_ptr<DSO::SystemFramework::BaseFilter> CopyOf(DSO::SystemFramework::BaseFilter& filter) = 0;
    virtual void Assign(DSO::SystemFramework::BaseFilter& to, const DSO::SystemFramework::BaseFilter& from) = 0;
    virtual std::unique_ptr<DSO::SystemFramework::BaseFilterParameters> CopyOfParameters() = 0;
    /// Destroys the filter; parameters and configuration stay.
    virtual void DropFilter() = 0;
    /// Gives the parameters the values of others of their class.
    virtual void Restore(const DSO::SystemFramework::BaseFilterParameters& from) = 0;

    std::vector<double> Apply(const std::vector<double>& samples) { return DSO::Filters::Filtered(Filter(), samples); }

    DSO::DeviceConfiguration config;
    std::vector<double> first, second;
};

/// A filter with the parameters that it points to.
struct ChosenFilter {
    std::unique_ptr<DSO::SystemFramework::BaseFilterParameters> parameters;
    std::unique_ptr<DSO::SystemFramework::BaseFilter> filter;
};

struct FilterKind {
    std::string name;    // letters and digits
    std::string filter;  // as its messages begin
    /// Two repetitions of 31 UI.
    std::function<std::unique_ptr<Rig>(int samplesPerUi)> make;
    /// On any settings; the same for all kinds of a filter.
    std::function<ChosenFilter(Choices& choices, DSO::DeviceConfiguration* config)> choose;

    friend void PrintTo(const FilterKind& kind, std::ostream* out) { *out << kind.name; }
};

const std::vector<FilterKind>& EveryFilter();

constexpr int kSamplesPerUi = 4;

}  // namespace Tarnwick::Testing
