#pragma once

#include <QtCore/QStringList>

namespace tarn::vkpublish {

// The commands below "key". Each gets the arguments after its name and returns the exit status.
int cmdKeyAdd(const QStringList& pArguments);
int cmdKeyRemove(const QStringList& pArguments);
int cmdKeyThreshold(const QStringList& pArguments);
int cmdKeyList(const QStringList& pArguments);
int cmdKeyMake(const QStringList& pArguments);
int cmdKeySigner(const QStringList& pArguments);

} // namespace tarn::vkpublish
