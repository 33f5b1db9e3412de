#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QJsonObject>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkpublish {

// What a root says about who may sign, to be read and changed. The signatures are not part of it.
class RootDocument
{
public:
    RootDocument() = default; // without keys
    // From a valid root.
    static Result<RootDocument> read(const QByteArray& pFile);

    qint64 version() const;
    QDateTime expires() const;
    QStringList keyIds(const QString& pRole) const;
    qint64 threshold(const QString& pRole) const;
    QJsonObject publicJson(const QString& pId) const;

    // Does nothing if the role has the key already.
    void addKey(const QString& pRole, const QJsonObject& pPublicJson);
    void removeKey(const QString& pRole, const QString& pId);
    void setThreshold(const QString& pRole, qint64 pThreshold);
    // Whether all roles but the root have the same keys and thresholds.
    bool signsLike(const RootDocument& pOther) const;

    // The bytes to sign of a root with this content.
    QByteArray payload(qint64 pVersion, const QDateTime& pExpires) const;

private:
    QJsonObject role(const QString& pRole) const;
    void setRole(const QString& pRole, const QStringList& pIds, qint64 pThreshold);

    QJsonObject mSigned;
};

} // namespace tarn::vkpublish
