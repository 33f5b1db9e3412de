#include "commands/Json.h"

#include "CommandLine.h"
#include "publication/Expiry.h"

#include "internal/PlainText.h"

#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

void sayJson(QJsonObject pObject)
{
    pObject.insert("format"_L1, 1);
    say(vkcore::plainJson(QJsonDocument(pObject).toJson(QJsonDocument::Compact)));
}

QJsonValue jsonDate(const QDateTime& pDate)
{
    return pDate.isValid() ? QJsonValue(pDate.toUTC().toString(Qt::ISODate)) : QJsonValue();
}

QJsonValue jsonText(const QString& pText)
{
    return pText.isEmpty() ? QJsonValue() : QJsonValue(pText);
}

QJsonObject jsonRoles(const RepositoryState& pState, const QDateTime& pNow)
{
    QJsonObject tRoles;
    for (auto tIt = pState.mVersions.begin(); tIt != pState.mVersions.end(); ++tIt) {
        QJsonObject tRole{{u"version"_s, tIt.value()}};
        const QDateTime tExpires = pState.mExpires.value(tIt.key());
        tRole.insert("expires"_L1, jsonDate(tExpires));
        tRole.insert("daysLeft"_L1, tExpires.isValid() ? QJsonValue(daysLeft(pNow, tExpires)) : QJsonValue());
        tRoles.insert(tIt.key(), tRole);
    }
    return tRoles;
}

void addValidity(const RepositoryState& pState, const QDateTime& pNow, QJsonObject* pTo)
{
    const QDateTime tExpires = firstExpiry(pState);
    pTo->insert("expires"_L1, jsonDate(tExpires));
    pTo->insert("daysLeft"_L1, tExpires.isValid() ? QJsonValue(daysLeft(pNow, tExpires)) : QJsonValue());
    pTo->insert("roles"_L1, jsonRoles(pState, pNow));
}

} // namespace tarn::vkpublish
