#pragma once

#include "internal/Failure.h"
#include "tuf/Metadata.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkpublish {

// Signatures on their way from an offline machine.
struct SignatureFile
{
    QString mRole;
    QByteArray mSha256; // of the signed bytes, in hex
    QList<tuf::Signature> mSignatures;

    QByteArray toJson() const;
    static Result<SignatureFile> fromJson(const QByteArray& pText);
};

} // namespace tarn::vkpublish
