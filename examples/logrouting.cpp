// Routes the filters' log lines into the host's own hands: the host shares the library's log storage and installs a
// callback that is handed each line. Exits with 1 when a line that should arrive does not.
#include <cstdio>
#include <string>
#include <vector>

#include <easylogging++.h>

#include "filters/filters.h"
#include "framework/storagesinglton.h"

SHARE_EASYLOGGINGPP(Tarnwick::DSO::SystemFramework::StorageSinglton::GetStorage())

namespace {

class HostLog : public el::LogDispatchCallback {
public:
    std::vector<std::string> lines;

protected:
    void handle(const el::LogDispatchData* data) override
    {
        const el::LogMessage& message = *data->logMessage();
        lines.push_back(message.logger()->id() + ": " + message.message());
        std::printf("%s\n", lines.back().c_str());
    }
};

}  // namespace

int main()
{
    using namespace Tarnwick::DSO;
    el::Helpers::installLogDispatchCallback<HostLog>("HostLog");
    auto* log = el::Helpers::logDispatchCallback<HostLog>("HostLog");

    DeviceConfiguration config;
    config.baudRateGBd = 26.5625;
    config.patternLengthUi = 16;
    config.samplesPerUi = 16;
    config.samplesPerPattern = 256;
    config.patternLocked[0] = true;
    {
        Filters::BesselThomsonParameters parameters(&config);
        Filters::BesselThomson receiver(&parameters);
        receiver.Prepare(nullptr);
    }
    CLOG(INFO, "default") << "the host writes through the same storage";

    const std::size_t received = log->lines.size();
    el::Helpers::uninstallLogDispatchCallback<HostLog>("HostLog");
    // Three pairs around constructor, Prepare and destructor, and the host's own line.
    return received == 7 ? 0 : 1;
}
