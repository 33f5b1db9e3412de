#pragma once

#include "os/Descriptor.h"
#include "os/Failure.h"

#include <QtCore/QString>

namespace tarn::vkservice::packages {

// Keeps a second service away from an install folder. Held by the process until the object goes.
class InstallLock
{
public:
    // A failure if another process holds it or the folder can't be used; never waits.
    os::Failure take(os::FileSystem& pFileSystem, const QString& pInstallDir);

private:
    os::Descriptor mFile;
};

} // namespace tarn::vkservice::packages
