#include "publication/Releases.h"

#include "publication/Layout.h"
#include "record/Record.h"

#include "tuf/Hashes.h"
#include "tuf/Metadata.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using packages::PackageInfo;
using packages::Phase;

namespace {

constexpr qsizetype sIdLength = 16;
constexpr qint64 sSecondsPerDay = 24 * 60 * 60;

// Two publications never share it: the version is used once.
QString publicationId(const Record& pRecord, const QDateTime& pNow)
{
    const QString tText =
        u"%1 %2"_s.arg(pNow.toUTC().toString(Qt::ISODate)).arg(pRecord.mVersions[tuf::sTargets] + 1);
    return QString::fromLatin1(tuf::sha256(tText.toUtf8()).first(sIdLength));
}

bool isNew(const Record& pRecord, const QString& pArchive)
{
    if (pRecord.mPublishedTargets.text(pArchive) == pRecord.mTargets.text(pArchive)) {
        return false;
    }
    const QJsonObject tPublished = pRecord.mPublishedTargets[pArchive].toObject();
    return tPublished.isEmpty() || asAdded(tPublished) != asAdded(pRecord.mTargets[pArchive].toObject());
}

template <typename F>
TargetList changed(TargetList pTargets, const QStringList& pArchives, F pChange)
{
    for (const QString& tArchive : pArchives) {
        const QJsonObject tTarget = pTargets[tArchive].toObject();
        if (std::optional<PackageInfo> tInfo = infoOf(tTarget)) {
            pChange(&tInfo->mRelease);
            pTargets.insert(tArchive, withInfo(tTarget, *tInfo));
        }
    }
    return pTargets;
}

} // namespace

QStringList archivesOf(const TargetList& pTargets, const QString& pName,
                       const std::optional<vkcore::Version>& pVersion)
{
    QStringList tFound;
    for (const QString& tArchive : pTargets.keysWithPrefix(pName + u'-')) {
        const std::optional<PackageInfo> tInfo = infoOf(pTargets[tArchive].toObject());
        if (tInfo && tInfo->mName == pName && (!pVersion || tInfo->mVersion.version() == *pVersion)) {
            tFound.append(tArchive);
        }
    }
    return tFound;
}

void setPhases(Record* pRecord, const QDateTime& pNow, int pDays)
{
    QStringList tArchives = pRecord->mTargets.keys();
    std::optional<Phase> tPhase;
    if (pDays > 0) {
        tArchives.removeIf([pRecord](const QString& pArchive) { return !isNew(*pRecord, pArchive); });
        tPhase = Phase{.mPublication = publicationId(*pRecord, pNow),
                       .mBegins = pNow,
                       .mSeconds = pDays * sSecondsPerDay};
    }
    pRecord->mTargets = changed(pRecord->mTargets, tArchives, [&tPhase](packages::Release* pRelease) {
        pRelease->mPhase = pRelease->mIsCritical ? std::nullopt : tPhase;
    });
}

TargetList halted(TargetList pTargets, const QStringList& pArchives, const QDateTime& pNow)
{
    return changed(std::move(pTargets), pArchives, [&pNow](packages::Release* pRelease) {
        pRelease->mHalted = pRelease->mHalted.value_or(pNow);
    });
}

TargetList resumed(TargetList pTargets, const QStringList& pArchives, const QDateTime& pNow)
{
    return changed(std::move(pTargets), pArchives, [&pNow](packages::Release* pRelease) {
        if (pRelease->mHalted && pRelease->mPhase) {
            const QDateTime tFrom = std::max(*pRelease->mHalted, pRelease->mPhase->mBegins);
            pRelease->mPhase->mBegins =
                pRelease->mPhase->mBegins.addSecs(std::max(qint64(0), tFrom.secsTo(pNow)));
        }
        pRelease->mHalted.reset();
    });
}

QString releaseText(const packages::Release& pRelease, const QDateTime& pNow)
{
    const auto tDate = [](const QDateTime& pDate) { return pDate.toUTC().toString(Qt::ISODate); };
    QStringList tParts;
    if (!pRelease.mChannel.isEmpty()) {
        tParts.append(u"channel "_s + pRelease.mChannel);
    }
    if (pRelease.mHalted) {
        tParts.append(u"halted since "_s + tDate(*pRelease.mHalted));
    }
    if (pRelease.mIsCritical) {
        tParts.append(u"critical"_s);
    }
    if (pRelease.mSecuritySince) {
        tParts.append(u"security since "_s + pRelease.mSecuritySince->toTarnAppFormat());
    }
    if (pRelease.mPhase && pRelease.mPhase->ends() > pNow) {
        tParts.append(u"phase until "_s + tDate(pRelease.mPhase->ends()));
    }
    return tParts.join(u", "_s);
}

} // namespace tarn::vkpublish
