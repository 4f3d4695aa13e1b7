#include "framework/plumbing/trace.h"

#include <easylogging++.h>

#include "framework/storagesinglton.h"

namespace Tarnwick::DSO::SystemFramework {

void TraceLine(const char* file, unsigned long line, const char* function, const char* message)
{
    (void)StorageSinglton::GetStorage();  // made and silenced before the first line
    el::base::Writer(el::Level::Trace, file, line, function, el::base::DispatchAction::NormalLog)
            .construct(1, el::base::consts::kDefaultLoggerId)
        << message;
}

}  // namespace Tarnwick::DSO::SystemFramework
