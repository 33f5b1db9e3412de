#pragma once

#include "mail/SmtpSettings.h"

#include <QtCore/QString>

namespace tarn::vkservice::store {
class ConfigVariables;
}

namespace tarn::vkservice::control {

// The configuration variables that the service reads, with their rules and defaults.
void addKnownVariables(store::ConfigVariables& pVariables, const QString& pConfigDir);
// What they say of the mail server.
mail::SmtpSettings smtpSettings(const store::ConfigVariables& pVariables);

} // namespace tarn::vkservice::control
