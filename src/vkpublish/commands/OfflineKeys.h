// The options --keys and --key of the commands for a machine that has keys, but no repository.
#pragma once

#include "review/SignedBefore.h"

#include "internal/Failure.h"

#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

class CommandLine;

void addOfflineKeys(CommandLine* pLine);

// The files that the options name; of a folder those that begin with the role.
Result<QList<OfflineKey>> offlineKeys(const CommandLine& pLine, const QString& pRole);
// What the payload changes since these keys, which *pKeys has after it, have signed.
Result<QStringList> reviewOffline(const CommandLine& pLine, const Payload& pPayload,
                                  QList<OfflineKey>* pKeys);

} // namespace tarn::vkpublish
