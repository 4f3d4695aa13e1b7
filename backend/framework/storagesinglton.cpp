#include "framework/storagesinglton.h"

#include <easylogging++.h>

INITIALIZE_NULL_EASYLOGGINGPP

namespace Tarnwick::DSO::SystemFramework {

namespace {

el::base::type::StoragePointer MakeStorage()
{
    using el::ConfigurationType;
    el::base::elStorage = std::make_shared<el::base::Storage>(el::LogBuilderPtr(new el::base::DefaultLogBuilder()));
    el::Configurations quiet;
    quiet.setToDefault();
    quiet.setGlobally(ConfigurationType::ToStandardOutput, "false");
    quiet.setGlobally(ConfigurationType::ToFile, "false");
    el::Loggers::reconfigureLogger(el::base::consts::kDefaultLoggerId, quiet);
    return el::base::elStorage;
}

}  // namespace

std::shared_ptr<el::base::Storage> StorageSinglton::GetStorage()
{
    static const el::base::type::StoragePointer storage = MakeStorage();
    return storage;
}

}  // namespace Tarnwick::DSO::SystemFramework
