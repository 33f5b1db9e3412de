#pragma once

#include "internal/PackageValues.h"

namespace tarn::packages {
struct CheckRecord;
struct Manifest;
} // namespace tarn::packages

namespace tarn::vkservice::control {

// The installed packages for clients, with their titles in this language and what the last verification has
// said about them.
vkcore::protocol::PackageEntries packageEntries(const packages::Manifest& pInstalled,
                                                const packages::CheckRecord& pChecks,
                                                const QString& pLanguage);

} // namespace tarn::vkservice::control
