#include "review/RoleReview.h"

#include "publication/Layout.h"
#include "publication/Releases.h"

#include <QtCore/QLocale>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

QString sizeOf(const QJsonObject& pTarget)
{
    return QLocale::c().formattedDataSize(pTarget["length"_L1].toInteger());
}

QJsonObject hashesOf(const QJsonObject& pTarget)
{
    return pTarget["hashes"_L1].toObject();
}

QString describe(const QString& pArchive, const QJsonObject& pTarget)
{
    const std::optional<packages::PackageInfo> tInfo = infoOf(pTarget);
    if (!tInfo) {
        return u"a file that is no package, %1: %2"_s.arg(sizeOf(pTarget), pArchive);
    }
    QStringList tParts{tInfo->mName + u' ' + tInfo->mVersion.version().toTarnAppFormat(),
                       tInfo->mVersion.date().toUTC().toString(Qt::ISODate), sizeOf(pTarget)};
    const QString tRelease = releaseText(tInfo->mRelease, QDateTime::fromSecsSinceEpoch(0));
    if (!tInfo->mLanguage.isEmpty()) {
        tParts.append(u"language "_s + tInfo->mLanguage);
    }
    if (!tRelease.isEmpty()) {
        tParts.append(tRelease);
    }
    return u"%1 (%2)"_s.arg(tParts.join(u", "_s), pArchive);
}

QString change(const QJsonObject& pNew, const QJsonObject& pBefore)
{
    if (hashesOf(pNew) != hashesOf(pBefore) || pNew["length"_L1] != pBefore["length"_L1]) {
        return u"other content"_s;
    }
    return asAdded(pNew) != asAdded(pBefore) ? u"other description"_s
                                             : u"same content, other deltas or release"_s;
}

// What machines do with the package, and the files beside it that they rely on.
QStringList details(const QString& pArchive, const QJsonObject& pTarget)
{
    QStringList tLines;
    const QJsonObject tHashes = hashesOf(pTarget);
    for (auto tIt = tHashes.begin(); tIt != tHashes.end(); ++tIt) {
        tLines.append(tuf::hashAlgorithm(tIt.key())
                          ? u"  %1 %2"_s.arg(tIt.key(), tIt.value().toString())
                          : u"WARNING: %1 has a hash of an unknown kind, \"%2\""_s.arg(pArchive, tIt.key()));
    }
    const std::optional<packages::PackageInfo> tInfo = infoOf(pTarget);
    if (!tInfo) {
        return tLines;
    }
    const auto tAdd = [&tLines](const QString& pWord, const QString& pText) {
        tLines += pText.isEmpty() ? QStringList() : QStringList(u"  %1 %2"_s.arg(pWord, pText));
    };
    tAdd(u"index"_s, tInfo->mIndex ? tInfo->mIndex->name() : QString());
    for (const packages::Attachment& tAttachment : tInfo->mAttachments) {
        tAdd(u"attached"_s, tAttachment.name());
    }
    tAdd(u"requires"_s, tInfo->mRequires.join(u", "_s));
    tAdd(u"must not run meanwhile"_s, tInfo->mExecutables.join(u", "_s));
    tAdd(u"machines run"_s, tInfo->mCheck);
    if (tInfo->toJson() != pTarget["custom"_L1].toObject()) {
        tLines.append(u"WARNING: the description of %1 has parts that are not shown here"_s.arg(pArchive));
    }
    return tLines;
}

} // namespace

QStringList reviewPackages(const QJsonObject& pNew, const QJsonObject& pBefore)
{
    const QJsonObject tNew = pNew["targets"_L1].toObject();
    const QJsonObject tBefore = pBefore["targets"_L1].toObject();
    QStringList tLines;
    qsizetype tSame = 0;
    qsizetype tAdded = 0;
    qsizetype tRemoved = 0;
    for (auto tIt = tNew.begin(); tIt != tNew.end(); ++tIt) {
        const QJsonObject tTarget = tIt.value().toObject();
        const QJsonObject tOld = tBefore[tIt.key()].toObject();
        if (tTarget == tOld) {
            ++tSame;
            continue;
        }
        tLines.append(tOld.isEmpty()
                          ? u"NEW: "_s + describe(tIt.key(), tTarget)
                          : u"CHANGED, %1: %2"_s.arg(change(tTarget, tOld), describe(tIt.key(), tTarget)));
        tLines += details(tIt.key(), tTarget);
        tAdded += tOld.isEmpty() ? 1 : 0;
    }
    for (auto tIt = tBefore.begin(); tIt != tBefore.end(); ++tIt) {
        if (!tNew.contains(tIt.key())) {
            tLines.append(u"REMOVED: "_s + describe(tIt.key(), tIt.value().toObject()));
            ++tRemoved;
        }
    }
    tLines.append(
        u"%1 new, %2 changed, %3 removed"_s.arg(tAdded).arg(tNew.size() - tSame - tAdded).arg(tRemoved));
    tLines.append(tSame == 1 ? u"1 package stays as it is"_s : u"%1 packages stay as they are"_s.arg(tSame));
    return tLines;
}

} // namespace tarn::vkpublish
