#include "filters/apply.h"

#include <cstddef>
#include <cstdint>
#include <limits>

#include "framework/plumbing/error.h"
#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::Filters {

std::vector<double> Filtered(SystemFramework::BaseFilter& filter, std::span<const double> samples)
{
    constexpr const char* kOperation = "Filters::Filtered";
    constexpr std::int32_t kMostSamples = std::numeric_limits<std::int32_t>::max();
    if (samples.size() > static_cast<std::size_t>(kMostSamples))
        SystemFramework::Refuse(kOperation, "number of samples", samples.size(),
                                "at most " + std::to_string(kMostSamples));
    SystemFramework::SignalData signal;
    signal.sampleCount = static_cast<std::int32_t>(samples.size());
    // A record is handed over as an array that may be written to; filters only read it.
    signal.samples = const_cast<double*>(samples.data());  // NOLINT(cppcoreguidelines-pro-type-const-cast)
    const SystemFramework::OwnedArray filtered(filter.Apply(&signal));
    if (!filtered)
        SystemFramework::Refuse(kOperation, "result of Apply", "null",
                                "a filtered record; the samples may be fewer than one repetition of the pattern");
    return {filtered.get(), filtered.get() + samples.size()};
}

}  // namespace Tarnwick::DSO::Filters
