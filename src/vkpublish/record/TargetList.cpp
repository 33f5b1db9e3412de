#include "record/TargetList.h"

#include "tuf/CanonicalJson.h"

#include <QtCore/QJsonDocument>

namespace tarn::vkpublish {

TargetList::TargetList(const QJsonObject& pTargets)
{
    for (auto tIt = pTargets.begin(); tIt != pTargets.end(); ++tIt) {
        insert(tIt.key(), tIt.value().toObject());
    }
}

QStringList TargetList::keys() const
{
    return keysWithPrefix(QString());
}

QStringList TargetList::keysWithPrefix(const QString& pPrefix) const
{
    const QByteArray tPrefix = pPrefix.toUtf8();
    QStringList tKeys;
    for (auto tIt = mTexts.lowerBound(tPrefix); tIt != mTexts.end() && tIt.key().startsWith(tPrefix); ++tIt) {
        tKeys.append(QString::fromUtf8(tIt.key()));
    }
    return tKeys;
}

QJsonValue TargetList::parsed(const QByteArray& pText)
{
    return pText.isEmpty() ? QJsonValue(QJsonValue::Undefined) : QJsonDocument::fromJson(pText).object();
}

void TargetList::insert(const QString& pName, const QJsonObject& pTarget)
{
    QByteArray tText;
    insertText(pName.toUtf8(), tuf::canonicalJson(pTarget, &tText) ? tText : QByteArray(""));
}

QByteArray TargetList::canonical() const
{
    QByteArray tAll("{");
    for (auto tIt = mTexts.begin(); tIt != mTexts.end(); ++tIt) {
        QByteArray tName;
        if (tIt->isEmpty() || !tuf::canonicalJson(QString::fromUtf8(tIt.key()), &tName)) {
            return QByteArray();
        }
        tAll += (tAll.size() > 1 ? "," : "") + tName + ':' + *tIt;
    }
    return tAll + '}';
}

} // namespace tarn::vkpublish
