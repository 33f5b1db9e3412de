#include "review/Review.h"

#include "review/RoleReview.h"

#include "internal/PlainText.h"
#include "tuf/Metadata.h"

#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sMaxLine = 400;

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
    static const QStringList sKnown{u"_type"_s,   u"spec_version"_s, u"version"_s, u"expires"_s,
                                    u"targets"_s, u"keys"_s,         u"roles"_s,   u"consistent_snapshot"_s};
    QStringList tLines;
    for (auto tIt = pPayload.mSigned.begin(); tIt != pPayload.mSigned.end(); ++tIt) {
        if (!sKnown.contains(tIt.key())) {
            tLines.append(u"WARNING: unknown part \"%1\": %2"_s.arg(tIt.key(), text(tIt.value())));
        }
    }
    return tLines;
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
    tLines +=
        pNew.mRole == tuf::sRoot ? reviewKeys(pNew.mSigned, tBefore) : reviewPackages(pNew.mSigned, tBefore);
    for (QString& tLine : tLines) {
        const bool tIsInner = tLine.startsWith("  "_L1);
        tLine = vkcore::singleLine(tLine, sMaxLine);
        tLine.prepend(tIsInner ? u"  "_s : QString());
    }
    return tLines;
}

} // namespace tarn::vkpublish
