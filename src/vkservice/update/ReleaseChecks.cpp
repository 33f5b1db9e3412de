#include "update/ReleaseChecks.h"

#include "internal/PlainText.h"
#include "update/Reporter.h"
#include "update/RunRequest.h"

#include <QtCore/QFile>
#include <QtCore/QHash>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr int sMaxOutput = 4096;
constexpr qsizetype sMaxNames = 100 * 1000; // bytes of a variable: more, and no program can be started

// Whole names, as many as fit.
QByteArray namesText(const QStringList& pNames)
{
    const QByteArray tText = pNames.join(u' ').toUtf8();
    return tText.size() <= sMaxNames ? tText : tText.first(tText.lastIndexOf(' ', sMaxNames));
}

} // namespace

using packages::InstalledPackage;
using packages::Manifest;

QList<InstalledPackage> changedPackages(const Manifest& pOld, const Manifest& pNew)
{
    QList<InstalledPackage> tChanged;
    for (const InstalledPackage& tPackage : pNew.mPackages) {
        const InstalledPackage* tOld = pOld.find(tPackage.mInfo.mName);
        if (tOld == nullptr || tOld->mHash != tPackage.mHash) {
            tChanged.append(tPackage);
        }
    }
    return tChanged;
}

QSet<QString> relatedPackages(const QList<InstalledPackage>& pChanged, const QString& pName)
{
    QHash<QString, QStringList> tNeighbours;
    for (const InstalledPackage& tPackage : pChanged) {
        const QString& tName = tPackage.mInfo.mName;
        tNeighbours[tName]; // also one that stands alone
        for (const QString& tRequired : tPackage.mInfo.mRequires) {
            tNeighbours[tName].append(tRequired);
            tNeighbours[tRequired].append(tName);
        }
    }
    QSet<QString> tChanged;
    for (const InstalledPackage& tPackage : pChanged) {
        tChanged.insert(tPackage.mInfo.mName);
    }
    QSet<QString> tFound{pName};
    for (QStringList tToDo{pName}; !tToDo.isEmpty();) {
        const QStringList tNext = tNeighbours.value(tToDo.takeFirst());
        for (const QString& tName : tNext) {
            if (tChanged.contains(tName) && !tFound.contains(tName)) {
                tFound.insert(tName);
                tToDo.append(tName);
            }
        }
    }
    return tFound;
}

QString packageLabel(const InstalledPackage& pPackage)
{
    return pPackage.mInfo.mName + u' ' + pPackage.mInfo.mVersion.version().toString();
}

ReleaseChecks::ReleaseChecks(const RunRequest& pRequest, const packages::PackageFolders& pFolders,
                             os::CheckRunner& pRunner, Reporter& pReporter)
    : mRequest(pRequest), mFolders(pFolders), mRunner(pRunner), mReporter(pReporter)
{
}

void ReleaseChecks::find(const Manifest& pNew, const QList<InstalledPackage>& pChanged)
{
    mChecks.clear();
    mChanged = pChanged;
    if (mChanged.isEmpty()) {
        return;
    }
    for (const InstalledPackage& tPackage : std::as_const(mChanged)) {
        if (!tPackage.mInfo.mCheck.isEmpty()) {
            addOfPackage(pNew, tPackage);
        }
    }
    addOfAdministrator(pNew);
}

void ReleaseChecks::addOfPackage(const Manifest& pNew, const InstalledPackage& pPackage)
{
    const QString tFolder = mFolders.absolute(pPackage.mFolder);
    mChecks.append(
        {.mLabel = u"%1: %2"_s.arg(packageLabel(pPackage), pPackage.mInfo.mCheck),
         .mPackage = pPackage.mInfo.mName,
         .mProgram = {.mProgram = tFolder + u'/' + pPackage.mInfo.mCheck,
                      .mFolder = tFolder,
                      .mVariables = {"VK_PACKAGE=" + pPackage.mInfo.mName.toUtf8(),
                                     "VK_VERSION=" + pPackage.mInfo.mVersion.version().toString().toUtf8(),
                                     "VK_FOLDER=" + QFile::encodeName(tFolder),
                                     "VK_GENERATION=" + QByteArray::number(pNew.mGeneration)},
                      .mSeconds = mRequest.mCheckSeconds,
                      .mMayChangeFiles = false}});
}

void ReleaseChecks::addOfAdministrator(const Manifest& pNew)
{
    QStringList tWarnings;
    const QStringList tPrograms =
        mRequest.mCheckDir.isEmpty() ? QStringList() : mRunner.programs(mRequest.mCheckDir, &tWarnings);
    for (const QString& tWarning : std::as_const(tWarnings)) {
        mReporter.notify(MessageWarning, u"A check of the administrator is left out. %1."_s.arg(tWarning));
    }
    QStringList tNames;
    for (const InstalledPackage& tPackage : std::as_const(mChanged)) {
        tNames.append(tPackage.mInfo.mName);
    }
    const QString tCurrent = mFolders.currentLink();
    for (const QString& tProgram : tPrograms) {
        mChecks.append({.mLabel = tProgram,
                        .mPackage = {},
                        .mProgram = {.mProgram = tProgram,
                                     .mFolder = tCurrent,
                                     .mVariables = {"VK_PACKAGES=" + namesText(tNames),
                                                    "VK_FOLDER=" + QFile::encodeName(tCurrent),
                                                    "VK_GENERATION=" + QByteArray::number(pNew.mGeneration)},
                                     .mSeconds = mRequest.mCheckSeconds,
                                     .mMayChangeFiles = true}});
    }
}

ReleaseChecks::Verdict ReleaseChecks::run(const os::AbortFlag& pAbort)
{
    mReporter.begin(vkcore::ActivityInstalling, false, mChecks.size(), false);
    for (const Check& tCheck : std::as_const(mChecks)) {
        mReporter.setText(u"Check of %1"_s.arg(tCheck.mLabel));
        const os::CheckOutcome tOutcome = mRunner.run(tCheck.mProgram, pAbort);
        report(tCheck, tOutcome);
        if (tOutcome.mIsAborted) {
            return {.mPassed = false, .mIsAborted = true, .mReason = {}, .mRefused = {}};
        }
        if (!tOutcome.mPassed) {
            Verdict tVerdict{.mPassed = false,
                             .mIsAborted = false,
                             .mReason = u"%1 %2"_s.arg(tCheck.mLabel, tOutcome.mReason),
                             .mRefused = {}};
            if (!tOutcome.mIsMachinesFault) {
                tVerdict.mRefused = failedWith(tCheck);
            }
            return tVerdict;
        }
        mReporter.advance(1);
    }
    return {};
}

QSet<QString> ReleaseChecks::failedWith(const Check& pCheck) const
{
    if (!pCheck.mPackage.isEmpty()) {
        return relatedPackages(mChanged, pCheck.mPackage);
    }
    QSet<QString> tAll;
    for (const InstalledPackage& tPackage : mChanged) {
        tAll.insert(tPackage.mInfo.mName);
    }
    return tAll;
}

void ReleaseChecks::report(const Check& pCheck, const os::CheckOutcome& pOutcome)
{
    mReporter.write(
        u"Check %1 %2."_s.arg(pCheck.mLabel, pOutcome.mPassed ? u"has passed"_s : pOutcome.mReason));
    const QStringList tLines =
        vkcore::manyLines(QString::fromUtf8(pOutcome.mOutput), sMaxOutput).split(u'\n', Qt::SkipEmptyParts);
    for (const QString& tLine : tLines) {
        mReporter.write(u"Check %1: %2"_s.arg(pCheck.mLabel, tLine));
    }
}

} // namespace tarn::vkservice::update
