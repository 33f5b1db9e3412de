#pragma once

#include "internal/Failure.h"
#include "internal/PackageValues.h"
#include "packages/PackageFolders.h"

namespace tarn::os {
class FileSystem;
}
namespace tarn::vkservice::store {
class ConfigVariables;
class Settings;
} // namespace tarn::vkservice::store
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

class StoreCare;
class UpdateControl;

// The kept generations of this machine, and the packages that it refuses.
class ReleaseControl
{
public:
    struct Parts
    {
        const store::Settings& mSettings;
        const store::ConfigVariables& mVariables;
        UpdateControl& mUpdates;
        StoreCare& mStore;
        process::ServiceApplication& mApp;
    };

    ReleaseControl(os::FileSystem& pFileSystem, const Parts& pParts)
        : mFileSystem(pFileSystem), mParts(pParts)
    {
    }

    // The current one and those that the machine can go back to.
    Result<vkcore::protocol::GenerationEntries> generations() const;
    // Goes back to one of them; 0: the one before the current one. Not while an update runs.
    Failure rollBack(qint64 pGeneration);

    Result<vkcore::protocol::RefusalEntries> refusals() const;
    // All versions of the package may be installed again. Not while an update runs.
    Failure accept(const QString& pPackage);

private:
    os::FileSystem& mFileSystem;
    Parts mParts;
};

} // namespace tarn::vkservice::control
