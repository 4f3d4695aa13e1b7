#pragma once

#include <memory>

#include "framework/export.h"

namespace el::base {
class Storage;
}

namespace Tarnwick::DSO::SystemFramework {

/// The Easylogging++ storage that every library of the host writes through.
///
/// A host that shares it builds easylogging++.cc with the definitions that this library's CMake target carries and says
/// `SHARE_EASYLOGGINGPP(StorageSinglton::GetStorage())` once. Until it changes the configuration of the logger
/// "default", lines reach the host's log-dispatch callbacks and are neither printed nor written to a file.
class TARNWICK_FRAMEWORK_API StorageSinglton {
public:
    /// The storage, made at the first call; the same one ever after. Safe from several threads.
    static std::shared_ptr<el::base::Storage> GetStorage();
};

}  // namespace Tarnwick::DSO::SystemFramework
