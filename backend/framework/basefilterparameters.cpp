#include "framework/basefilterparameters.h"

#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO::SystemFramework {

void BaseFilterParameters::SetFrequencyGrid(double* grid)
{
    gridOwner_ = SharedArray(grid);
    frequencyGrid = grid;
}

}  // namespace Tarnwick::DSO::SystemFramework
