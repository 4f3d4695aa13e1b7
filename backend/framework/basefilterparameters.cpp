#include "framework/basefilterparameters.h"

#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::SystemFramework {

void BaseFilterParameters::SetFrequencyGrid(double* grid)
{
    // A null pointer with a deleter would still take memory: letting go must not fail.
    gridOwner_ = grid != nullptr ? std::shared_ptr<double>(grid, BoundaryRelease()) : nullptr;
    frequencyGrid = grid;
}

}  // namespace Tarnwick::DSO::SystemFramework
