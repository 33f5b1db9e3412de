#include "mirror/MirrorRecord.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sFormat = 1;

QString toText(const QDateTime& pTime)
{
    return pTime.toUTC().toString(Qt::ISODateWithMs);
}

QDateTime toTime(const QJsonValue& pText)
{
    return QDateTime::fromString(pText.toString(), Qt::ISODateWithMs);
}

// Nobody else writes the record, but what it names is removed.
bool isBelow(const QString& pPath)
{
    const QStringList tParts = pPath.split(u'/');
    return (tParts.first() == "metadata"_L1 || tParts.first() == "targets"_L1) && !tParts.contains(u".."_s) &&
           tParts.size() > 1;
}

} // namespace

void MirrorRecord::setNamed(const QSet<QString>& pNamed, const QDateTime& pNow)
{
    for (const QString& tPath : mNamed) {
        if (!pNamed.contains(tPath)) {
            mUnnamed.insert(tPath, pNow);
        }
    }
    mNamed = pNamed;
    mUnnamed.removeIf([&](const auto& pEntry) { return pNamed.contains(pEntry.key()); });
}

QByteArray MirrorRecord::toJson() const
{
    QStringList tNamed(mNamed.begin(), mNamed.end());
    tNamed.sort();
    QJsonObject tUnnamed;
    for (auto tIt = mUnnamed.begin(); tIt != mUnnamed.end(); ++tIt) {
        tUnnamed.insert(tIt.key(), toText(tIt.value()));
    }
    return QJsonDocument(QJsonObject{{u"format"_s, sFormat},
                                     {u"expires"_s, toText(mExpires)},
                                     {u"root"_s, QString::fromUtf8(mRoot)},
                                     {u"complete"_s, QString::fromLatin1(mComplete)},
                                     {u"named"_s, QJsonArray::fromStringList(tNamed)},
                                     {u"unnamed"_s, tUnnamed}})
        .toJson();
}

std::optional<MirrorRecord> MirrorRecord::fromJson(const QByteArray& pText)
{
    const QJsonObject tObject = QJsonDocument::fromJson(pText).object();
    MirrorRecord tRecord;
    if (tObject["format"_L1].toInt() != sFormat) {
        return std::nullopt;
    }
    tRecord.mRoot = tObject["root"_L1].toString().toUtf8();
    tRecord.mComplete = tObject["complete"_L1].toString().toLatin1();
    tRecord.mExpires = toTime(tObject["expires"_L1]);
    for (const QJsonValue tPath : tObject["named"_L1].toArray()) {
        tRecord.mNamed.insert(tPath.toString());
    }
    const QJsonObject tUnnamed = tObject["unnamed"_L1].toObject();
    for (auto tIt = tUnnamed.begin(); tIt != tUnnamed.end(); ++tIt) {
        tRecord.mUnnamed.insert(tIt.key(), toTime(tIt.value()));
    }
    const QStringList tPaths = tRecord.mUnnamed.keys() + tRecord.mNamed.values();
    return std::all_of(tPaths.begin(), tPaths.end(), isBelow) ? std::optional(tRecord) : std::nullopt;
}

} // namespace tarn::vkpublish
