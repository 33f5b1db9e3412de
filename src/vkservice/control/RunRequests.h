#pragma once

#include "update/RunRequest.h"

#include <optional>

namespace tarn::packages {
class CheckRecordFile;
}
namespace tarn::vkservice::store {
class ConfigVariables;
class HoldTable;
class ServerTable;
class Settings;
} // namespace tarn::vkservice::store
namespace tarn::vkservice::process {
class ServiceApplication;
}

namespace tarn::vkservice::control {

// The sources of the data that a run needs.
struct RunSources
{
    store::ServerTable& mServers;
    store::Settings& mSettings;
    const store::ConfigVariables& mVariables;
    const packages::CheckRecordFile& mChecks;
    const process::ServiceApplication& mApp;
    const store::HoldTable& mHolds;
};

// No value if the store cannot be read.
std::optional<update::RunRequest> runRequest(const RunSources& pSources);

} // namespace tarn::vkservice::control
