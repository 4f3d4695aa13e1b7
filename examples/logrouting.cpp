// Routes the filters' log lines into the host's own hands: the host shares the library's log storage and installs a
// callback that is handed each line. Exits with 1 when a line that should arrive does not.
#include <cstdio>
#include <string>

#include <easylogging++.h>

#include "filters/filters.h"
#include "framework/storagesinglton.h"

SHARE_EASYLOGGINGPP(Tarnwick::DSO::SystemFramework::StorageSinglton::GetStorage())

namespace {

int received = 0;

void Write(const std::string& file, unsigned long line, const std::string& function, const std::string& message)
{
    ++received;
    std::printf("%s:%lu %s: %s\n", file.c_str(), line, function.c_str(), message.c_str());
}

class HostLog : public el::LogDispatchCallback {
protected:
    void handle(const el::LogDispatchData* data) override
    {
        const el::LogMessage& message = *data->logMessage();
        Write(message.file(), message.line(), message.func(), message.message());  // the host's own
    }
};

}  // namespace

int main()
{
    using namespace Tarnwick::DSO;
    el::Helpers::installLogDispatchCallback<HostLog>("HostLog");

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

    el::Helpers::uninstallLogDispatchCallback<HostLog>("HostLog");
    // From here on the logger prints by itself.
    el::Configurations printed;
    printed.setToDefault();
    printed.setGlobally(el::ConfigurationType::ToFile, "false");
    printed.setGlobally(el::ConfigurationType::ToStandardOutput, "true");
    printed.setGlobally(el::ConfigurationType::Format, "%datetime %level %func: %msg");
    el::Loggers::reconfigureLogger("default", printed);
    CLOG(INFO, "default") << "and prints its lines";

    // Three pairs around constructor, Prepare and destructor, and the host's own line.
    return received == 7 ? 0 : 1;
}
