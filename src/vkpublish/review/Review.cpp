#include "review/Review.h"

#include "review/RoleReview.h"

#include "internal/PlainText.h"
#include "tuf/Metadata.h"

#include <QtCore/QDateTime>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sMaxLine = 400;
constexpr int sMostDays = 4000;        // somewhat more than "vkpublish" signs without being asked to
constexpr qint64 sLargestStep = 10000; // of versions between two that a person has seen

QString text(const QJsonValue& pValue)
{
    return QString::fromUtf8(QJsonDocument(QJsonArray{pValue}).toJson(QJsonDocument::Compact))
        .mid(1)
        .chopped(1);
}

QString title(const Payload& pPayload)
{
    return pPayload.mRole == tuf::sRoot ? u"Root, version %1"_s.arg(pPayload.mVersion)
                                        : u"List of packages, version %1"_s.arg(pPayload.mVersion);
}

QString expiry(const Payload& pPayload)
{
    return pPayload.mSigned["expires"_L1].toString();
}

// Parts that this version does not know, such as delegations: they might decide who is trusted.
QStringList unknownParts(const Payload& pPayload)
{
    QStringList tKnown{u"_type"_s, u"spec_version"_s, u"version"_s, u"expires"_s};
    tKnown += pPayload.mRole == tuf::sRoot ? QStringList{u"keys"_s, u"roles"_s, u"consistent_snapshot"_s}
                                           : QStringList{u"targets"_s};
    QStringList tLines;
    for (auto tIt = pPayload.mSigned.begin(); tIt != pPayload.mSigned.end(); ++tIt) {
        if (!tKnown.contains(tIt.key())) {
            tLines.append(u"WARNING: unknown part \"%1\": %2"_s.arg(tIt.key(), text(tIt.value())));
        }
    }
    return tLines;
}

// What would bind the publisher for longer than it may want.
QStringList farAhead(const Payload& pPayload, qint64 pVersionBefore)
{
    QStringList tLines;
    if (pPayload.mVersion - pVersionBefore > sLargestStep) {
        tLines.append(u"WARNING: the version is far higher than it has to be"_s);
    }
    const QDateTime tMost = QDateTime::currentDateTimeUtc().addDays(sMostDays);
    if (QDateTime::fromString(expiry(pPayload), Qt::ISODate) > tMost) {
        tLines.append(u"WARNING: it is valid for more than %1 days"_s.arg(sMostDays));
    }
    return tLines;
}

// What a person must not overlook comes last, after any number of other lines.
void putWarningsLast(QStringList* pLines)
{
    std::stable_partition(pLines->begin(), pLines->end(),
                          [](const QString& pLine) { return !pLine.startsWith("WARNING: "_L1); });
}

} // namespace

QStringList review(const Payload& pNew, const std::optional<Payload>& pBefore, const QString& pWhence)
{
    QStringList tLines;
    if (!pBefore) {
        tLines.append(u"%1. There is nothing to compare with, so everything is new"_s.arg(title(pNew)));
        tLines.append(u"Valid until %1"_s.arg(expiry(pNew)));
    } else {
        tLines.append(
            u"%1, compared with version %2, %3"_s.arg(title(pNew)).arg(pBefore->mVersion).arg(pWhence));
        tLines.append(u"Valid until %1, before: until %2"_s.arg(expiry(pNew), expiry(*pBefore)));
        if (pNew.mVersion < pBefore->mVersion ||
            (pNew.mVersion == pBefore->mVersion && pNew.mBytes != pBefore->mBytes)) {
            tLines.append(u"WARNING: the version is not higher than that one, and the content differs"_s);
        }
    }
    const QJsonObject tBefore = pBefore ? pBefore->mSigned : QJsonObject();
    tLines += unknownParts(pNew);
    tLines += farAhead(pNew, pBefore ? pBefore->mVersion : 0);
    tLines +=
        pNew.mRole == tuf::sRoot ? reviewKeys(pNew.mSigned, tBefore) : reviewPackages(pNew.mSigned, tBefore);
    putWarningsLast(&tLines);
    for (QString& tLine : tLines) {
        const bool tIsInner = tLine.startsWith("  "_L1);
        tLine = vkcore::singleLine(tLine, sMaxLine);
        tLine.prepend(tIsInner ? u"  "_s : QString());
    }
    return tLines;
}

} // namespace tarn::vkpublish
