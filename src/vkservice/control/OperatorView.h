#pragma once

#include "internal/Failure.h"
#include "internal/PackageValues.h"
#include "update/TrustExpiry.h"

namespace tarn::vkservice::store {
class ConfigVariables;
class Settings;
} // namespace tarn::vkservice::store
namespace tarn::vkservice::process {
class ServiceApplication;
}
namespace tarn::vkservice {
struct RunRecord;
}

namespace tarn::vkservice::control {

class ScheduleControl;
class UpdateControl;
class VerifyControl;

// What the service knows about the machine, for the people who look after it. Changes nothing.
class OperatorView
{
public:
    struct Parts
    {
        const store::Settings& mSettings;
        const store::ConfigVariables& mVariables;
        const UpdateControl& mUpdates;
        const VerifyControl& mVerifications;
        const ScheduleControl& mSchedule;
        const process::ServiceApplication& mApp;
    };

    OperatorView(os::FileSystem& pFileSystem, const Parts& pParts) : mParts(pParts), mExpiry(pFileSystem) {}

    vkcore::protocol::Overview overview();
    // The installed packages, with the dates of their installation where the install log has them.
    Result<vkcore::protocol::PackageEntries> packages() const;
    // The newest runs in the install log.
    Result<vkcore::protocol::History> history(int pRuns) const;

private:
    QString logPath() const;
    QList<RunRecord> pastRuns() const;

    Parts mParts;
    update::TrustExpiry mExpiry;
};

} // namespace tarn::vkservice::control
