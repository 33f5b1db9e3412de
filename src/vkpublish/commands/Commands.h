#pragma once

#include <QtCore/QStringList>

namespace tarn::vkpublish {

// Each command gets the arguments after its name and returns the exit status.
int cmdInit(const QStringList& pArguments);
int cmdAdd(const QStringList& pArguments);
int cmdRemove(const QStringList& pArguments);
int cmdHalt(const QStringList& pArguments);
int cmdPublish(const QStringList& pArguments);
int cmdRefresh(const QStringList& pArguments);
int cmdRecover(const QStringList& pArguments);
int cmdList(const QStringList& pArguments);
int cmdVerify(const QStringList& pArguments);
int cmdMirror(const QStringList& pArguments);
int cmdRotateKey(const QStringList& pArguments);
int cmdKey(const QStringList& pArguments);
int cmdPayload(const QStringList& pArguments);
int cmdShow(const QStringList& pArguments);
int cmdSign(const QStringList& pArguments);
int cmdAddSignature(const QStringList& pArguments);

} // namespace tarn::vkpublish
