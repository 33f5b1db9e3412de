#pragma once

#include "mail/SmtpSettings.h"

#include <QtCore/QString>

#include <optional>

namespace tarn::vkservice::store {
class ConfigVariables;
}

namespace tarn::vkservice::control {

// The configuration variables that the service reads, with their rules and defaults.
void addKnownVariables(store::ConfigVariables& pVariables, const QString& pConfigDir);
// What they say of the mail server; none if the database can't be read.
std::optional<mail::SmtpSettings> smtpSettings(const store::ConfigVariables& pVariables);

} // namespace tarn::vkservice::control
