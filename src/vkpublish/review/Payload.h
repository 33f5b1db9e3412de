#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QJsonObject>
#include <QtCore/QString>

namespace tarn::vkpublish {

inline constexpr qint64 sMaxPayloadFile = 16 * 1024 * 1024;

// What is signed, or is to be: a root or a list of packages. It comes from another machine, so its texts are
// foreign.
struct Payload
{
    QString mRole; // root or targets
    qint64 mVersion = 0;
    QJsonObject mSigned;
    QByteArray mBytes; // the exact bytes that signatures are over
};

// From bytes to sign, or from a metadata file, whose signatures are not checked.
Result<Payload> readPayload(const QByteArray& pFile);
// Only from bytes to sign.
Result<Payload> readBytesToSign(const QByteArray& pFile);

} // namespace tarn::vkpublish
