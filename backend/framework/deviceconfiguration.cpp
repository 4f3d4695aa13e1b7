#include "framework/deviceconfiguration.h"

#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO {

using SystemFramework::BoundaryRelease;

void DeviceConfiguration::PublishTdecqEqualizer(double* taps, std::int32_t length)
{
    std::shared_ptr<double> owner;
    if (taps != nullptr)
        owner.reset(taps, BoundaryRelease());
    if (tdecqEqualizer != tdecqOwner_.array.get())
        BoundaryRelease()(tdecqEqualizer);
    tdecqOwner_.array = std::move(owner);
    tdecqEqualizer = taps;
    tdecqEqualizerLength = length;
}

}  // namespace Tarnwick::DSO
