#include "framework/storagesinglton.h"

#include <easylogging++.h>

#include <atomic>
#include <memory>

#include "maths/transforms/lifetimes.h"

namespace {

// Destroyed after the logging library's own pointer to the storage, because it is defined before it: puts the pointer
// back for the lines of objects that go later still, and writes out what a host's files still buffer.
struct StorageKeeper {
    ~StorageKeeper();
};
const StorageKeeper kStorageKeeper;
std::atomic<bool> isStorageMade = false;

}  // namespace

INITIALIZE_NULL_EASYLOGGINGPP

namespace {

StorageKeeper::~StorageKeeper()
{
    std::construct_at(&el::base::elStorage);
    if (!isStorageMade)
        return;
    el::base::elStorage = Tarnwick::DSO::SystemFramework::StorageSinglton::GetStorage();
    el::Loggers::flushAll();
}

}  // namespace

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
    isStorageMade = true;
    return el::base::elStorage;
}

}  // namespace

std::shared_ptr<el::base::Storage> StorageSinglton::GetStorage()
{
    static Maths::NeverDestroyed<el::base::type::StoragePointer> storage(MakeStorage());
    return *storage;
}

}  // namespace Tarnwick::DSO::SystemFramework
