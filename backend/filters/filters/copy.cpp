#include "filters/filters/copy.h"

#include "filters/plumbing/repetitions.h"
#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::Filters {

using SystemFramework::SignalData;

Copy::Copy(CopyParameters* parameters)
{
    this->parameters = parameters;
}

double* Copy::Apply(SignalData* signal)
{
    return SystemFramework::NewArrayFrom(SamplesOf("Copy", signal)).release();
}

}  // namespace Tarnwick::DSO::Filters
