#include "framework/deviceconfiguration.h"

#include "framework/plumbing/ownedarray.h"

namespace Tarnwick::DSO {

void DeviceConfiguration::PublishTdecqEqualizer(double* taps, std::int32_t length)
{
    std::shared_ptr<double> owner = SystemFramework::SharedArray(taps);
    if (tdecqEqualizer != tdecqOwner_.array.get())
        SystemFramework::BoundaryRelease()(tdecqEqualizer);
    tdecqOwner_.array = std::move(owner);
    tdecqEqualizer = taps;
    tdecqEqualizerLength = length;
}

}  // namespace Tarnwick::DSO
