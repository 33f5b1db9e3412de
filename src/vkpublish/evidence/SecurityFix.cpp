#include "evidence/SecurityFix.h"

#include "evidence/Attachments.h"
#include "publication/Layout.h"
#include "publication/Releases.h"
#include "record/Record.h"

#include <optional>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using packages::Attachment;
using packages::AttachmentKind;
using packages::PackageInfo;

namespace {

// The newest description of each archive of the package: its publisher may have taken a mark back.
QMap<QString, QJsonObject> archivesNamed(const Record& pRecord, const QString& pName)
{
    QMap<QString, QJsonObject> tFound;
    const auto tAdd = [&](const auto& pTargets) {
        const QStringList tArchives = archivesOf(pTargets, pName, std::nullopt);
        for (const QString& tArchive : tArchives) {
            if (!tFound.contains(tArchive)) {
                tFound.insert(tArchive, pTargets[tArchive].toObject());
            }
        }
    };
    tAdd(pRecord.mTargets);
    tAdd(pRecord.mPublishedTargets);
    tAdd(pRecord.mWithdrawnTargets);
    return tFound;
}

// The lower version that brought the last fix.
std::optional<PackageInfo> lastFix(const Record& pRecord, const PackageInfo& pInfo)
{
    std::optional<PackageInfo> tLast;
    const auto tIsLater = [&tLast](const PackageInfo& pOther) {
        const auto& tSince = tLast->mRelease.mSecuritySince;
        return pOther.mRelease.mSecuritySince > tSince ||
               (pOther.mRelease.mSecuritySince == tSince && pOther.mVersion < tLast->mVersion);
    };
    const QMap<QString, QJsonObject> tArchives = archivesNamed(pRecord, pInfo.mName);
    for (const QJsonObject& tTarget : tArchives) {
        const std::optional<PackageInfo> tOther = infoOf(tTarget);
        if (tOther && tOther->mLanguage == pInfo.mLanguage &&
            tOther->mVersion.version() < pInfo.mVersion.version() && tOther->mRelease.mSecuritySince &&
            (!tLast || tIsLater(*tOther))) {
            tLast = tOther;
        }
    }
    return tLast;
}

} // namespace

void carryFixOn(const Record& pRecord, const QString& pTargets, PackageInfo* pInfo)
{
    const std::optional<PackageInfo> tLast = lastFix(pRecord, *pInfo);
    if (!tLast || pInfo->mRelease.mSecuritySince > tLast->mRelease.mSecuritySince) {
        return;
    }
    pInfo->mRelease.mSecuritySince = tLast->mRelease.mSecuritySince;
    const Attachment* tAdvisory = tLast->attachment(AttachmentKind::Advisory);
    if (tAdvisory != nullptr && pInfo->attachment(AttachmentKind::Advisory) == nullptr &&
        !checkAttachment(pTargets, *tAdvisory)) {
        pInfo->mAttachments.prepend(*tAdvisory);
    }
}

} // namespace tarn::vkpublish
