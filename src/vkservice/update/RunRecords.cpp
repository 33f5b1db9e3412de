#include "update/RunRecords.h"

#include "internal/PlainText.h"
#include "packages/PackageFolders.h"
#include "packages/Refusals.h"
#include "update/Plan.h"

#include <QtCore/QHash>
#include <QtCore/QSet>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

using packages::InstalledPackage;
using packages::PackageInfo;
using vkcore::LangString;
using vkcore::LogRecord;

constexpr int sMaxTitle = 1000;
constexpr int sMaxReport = 64 * 1024;

// As the publisher wrote it, without control sequences for terminals.
LangString plain(const LangString& pText, QString (*pClean)(const QString&, int), int pMaxLength)
{
    LangString tPlain;
    for (auto tValue = pText.values().cbegin(); tValue != pText.values().cend(); ++tValue) {
        tPlain.setValue(tValue.key(), pClean(tValue.value(), pMaxLength));
    }
    return tPlain;
}

// Behind the report, in each of its languages: it is written in one.
LangString withAdvisory(LangString pReport, const QString& pAdvisory)
{
    const QString tAdvisory = vkcore::manyLines(pAdvisory, sMaxReport);
    if (tAdvisory.isEmpty()) {
        return pReport;
    }
    LangString tWhole;
    const auto tReports = pReport.values();
    for (auto tReport = tReports.cbegin(); tReport != tReports.cend(); ++tReport) {
        if (!tReport.value().isEmpty()) {
            tWhole.setValue(tReport.key(), u"%1\nAdvisory: "_s.arg(tReport.value()) + tAdvisory);
        }
    }
    if (tWhole.isEmpty()) {
        tWhole.setValue(u"en"_s, u"Advisory: "_s + tAdvisory);
    }
    return tWhole;
}

LogRecord recordOf(const PackageInfo& pInfo, const Plan& pPlan, const QString& pStatus)
{
    LogRecord tRecord;
    tRecord.mPackage = pInfo.mName;
    tRecord.mParent = pPlan.mParents.value(pInfo.mName);
    tRecord.mVersion = pInfo.mVersion.version().toString();
    tRecord.mStatus = pStatus;
    tRecord.mVersionDate = pInfo.mVersion.date();
    tRecord.mTitle = plain(pInfo.mTitle, vkcore::singleLine, sMaxTitle);
    return tRecord;
}

// The parents of updated packages that are not in the plan themselves.
QSet<QString> parentsOfUpdated(const Plan& pPlan)
{
    QSet<QString> tPlanned;
    QStringList tToDo;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        tPlanned.insert(tPackage.name());
        if (!tPackage.mFailure) {
            tToDo.append(tPackage.name());
        }
    }
    QHash<QString, QStringList> tParents;
    for (const PackageInfo& tInfo : pPlan.mChosen) {
        for (const QString& tChild : tInfo.mRequires) {
            tParents[tChild].append(tInfo.mName);
        }
    }
    QSet<QString> tFound;
    while (!tToDo.isEmpty()) {
        const QStringList tAbove = tParents.value(tToDo.takeFirst());
        for (const QString& tName : tAbove) {
            if (!tFound.contains(tName) && !tPlanned.contains(tName)) {
                tFound.insert(tName);
                tToDo.append(tName);
            }
        }
    }
    return tFound;
}

} // namespace

QList<LogRecord> runRecords(const Plan& pPlan)
{
    QList<LogRecord> tRecords;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        const PackageInfo& tInfo = tPackage.mOffer.mInfo;
        const bool tFailed = static_cast<bool>(tPackage.mFailure);
        LogRecord tRecord = recordOf(tInfo, pPlan, tFailed ? u"error"_s : u"ok"_s);
        if (tFailed) {
            tRecord.mReport.setValue(u"en"_s,
                                     vkcore::singleLine(tPackage.mFailure.mText, vkcore::sMaxMessage) + u'.');
        } else if (tPackage.mRepair > 0) {
            tRecord.mReport.setValue(u"en"_s, u"Files of this package were damaged; it was repaired."_s);
        } else {
            tRecord.mReport =
                withAdvisory(plain(tInfo.mReport, vkcore::manyLines, sMaxReport), tPackage.mAdvisory);
        }
        tRecords.append(tRecord);
    }
    const QSet<QString> tParents = parentsOfUpdated(pPlan);
    for (const PackageInfo& tInfo : pPlan.mChosen) {
        if (tParents.contains(tInfo.mName)) {
            tRecords.append(recordOf(tInfo, pPlan, u"child_packages_updated"_s));
        }
    }
    return tRecords;
}

QList<LogRecord> recordsOfWayBack(const packages::Manifest& pRun, const QList<InstalledPackage>& pChanged,
                                  const packages::Refusals& pRefusals)
{
    QList<LogRecord> tRecords;
    QSet<QString> tNames;
    for (const InstalledPackage& tPackage : pChanged) {
        tNames.insert(tPackage.mInfo.mName);
        LogRecord tRecord = recordOf(tPackage.mInfo, {}, {});
        tRecord.mParent = tPackage.mParent;
        const packages::Refusal* tRefusal = pRefusals.find(tPackage.mHash);
        tRecord.mStatus = tRefusal != nullptr ? u"error"_s : u"warning"_s;
        tRecord.mReport.setValue(
            u"en"_s, tRefusal != nullptr
                         ? tRefusal->mReason + u'.'
                         : u"Other packages of the same update failed their check. It comes again."_s);
        tRecords.append(tRecord);
    }
    for (const LogRecord& tRecord : pRun.mRecords) {
        if (tRecord.mStatus == "error"_L1 && !tNames.contains(tRecord.mPackage)) {
            tRecords.append(tRecord);
        }
    }
    return tRecords;
}

QList<InstalledPackage> newPackages(const Plan& pPlan, const packages::PackageFolders& pFolders)
{
    QList<InstalledPackage> tNew;
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        if (!tPackage.mFailure) {
            PackageInfo tInfo = tPackage.mOffer.mInfo;
            tInfo.mDeltas.clear(); // they lead here, and are of no further use
            tInfo.mAttachments.clear();
            // The rest was of use for the choice alone; this says what the machine loses if it goes back.
            packages::Release tKept;
            tKept.mSecuritySince = tInfo.mRelease.mSecuritySince;
            tInfo.mRelease = tKept;
            tNew.append({tInfo, tPackage.mOffer.hash(), tPackage.folder(pFolders),
                         pPlan.mParents.value(tInfo.mName)});
        }
    }
    return tNew;
}

QList<InstalledPackage> packagesAfter(const packages::Manifest& pBefore, const Plan& pPlan,
                                      const packages::PackageFolders& pFolders)
{
    QMap<QString, InstalledPackage> tAfter;
    for (const InstalledPackage& tPackage : pBefore.mPackages) {
        InstalledPackage& tKept = tAfter[tPackage.mInfo.mName] = tPackage;
        if (pPlan.mChosen.contains(tPackage.mInfo.mName)) {
            tKept.mParent = pPlan.mParents.value(tPackage.mInfo.mName);
        }
    }
    const QList<InstalledPackage> tNew = newPackages(pPlan, pFolders);
    for (const InstalledPackage& tPackage : tNew) {
        tAfter.insert(tPackage.mInfo.mName, tPackage);
    }
    return tAfter.values();
}

} // namespace tarn::vkservice::update
