#pragma once

#include "internal/Failure.h"
#include "mail/SmtpSettings.h"
#include "schedule/Windows.h"

#include <QtCore/QString>

#include <optional>

namespace tarn::vkservice::store {
class ConfigVariables;
}

namespace tarn::vkservice::control {

// The configuration variables that the service reads, with their rules and defaults.
void addKnownVariables(store::ConfigVariables& pVariables, const QString& pConfigDir);
// False: updates install all that is offered. *pAllRead becomes false if the database cannot be read.
bool takesOnlySecurity(const store::ConfigVariables& pVariables, bool* pAllRead = nullptr);
// The windows of scheduled runs. A failure if the store can't be read, or if the value is wrong.
Result<schedule::Windows> windowsOf(const store::ConfigVariables& pVariables);
// The variables that set up the mail server; empty if the database cannot be read.
std::optional<mail::SmtpSettings> smtpSettings(const store::ConfigVariables& pVariables);

} // namespace tarn::vkservice::control
