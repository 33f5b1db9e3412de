#pragma once

#include "internal/Failure.h"
#include "packages/PackageFolders.h"

namespace tarn::vkservice::store {
class ConfigVariables;
class Settings;
} // namespace tarn::vkservice::store

namespace tarn::vkservice::control {

class StoreCare;

// Where the packages of this machine are, by its settings. A failure if the store can't be read.
Result<packages::PackageFolders> installFolders(const store::Settings& pSettings,
                                                const store::ConfigVariables& pVariables, StoreCare& pStore);

} // namespace tarn::vkservice::control
