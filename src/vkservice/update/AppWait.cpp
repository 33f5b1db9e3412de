#include "update/AppWait.h"

#include "os/AbortFlag.h"
#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "os/ProcessList.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/Plan.h"
#include "update/Reporter.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <vector>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

// How often to scan the processes: if the kernel cannot report their end, and if it can (a process id may
// have been reused before it was opened).
constexpr int sPollMs = 500;
constexpr int sRecheckMs = 10 * 1000;

// True unless the kernel can run the file itself; other files are read by an interpreter.
bool needsInterpreter(const QString& pPath)
{
    constexpr QByteArrayView sElf("\x7f"
                                  "ELF");
    const os::Descriptor tFile = os::openRegular(os::realFileSystem(), QFile::encodeName(pPath));
    char tBegin[sElf.size()];
    return tFile.isOpen() && (::read(tFile.fd(), tBegin, sizeof tBegin) != sElf.size() ||
                              QByteArrayView(tBegin, sElf.size()) != sElf);
}

} // namespace

AppWait::AppWait(os::ProcessList& pProcesses, const packages::Manifest& pInstalled,
                 const packages::PackageFolders& pFolders, const Plan& pPlan, Reporter& pReporter,
                 const os::AbortFlag& pAbort)
    : mProcesses(pProcesses), mReporter(pReporter), mAbort(pAbort), mPlaces{"/usr/", "/bin/"}
{
    const QStringList tRoots = pFolders.roots();
    for (const QString& tRoot : tRoots) {
        mPlaces.append(QFile::encodeName(tRoot) + '/');
        if (const QString tCanonical = QFileInfo(tRoot).canonicalFilePath(); !tCanonical.isEmpty()) {
            mPlaces.append(QFile::encodeName(tCanonical) + '/');
        }
    }
    for (const PlannedPackage& tPackage : pPlan.mPackages) {
        const packages::InstalledPackage* tInstalled = pInstalled.find(tPackage.name());
        if (!tPackage.mFailure && tInstalled != nullptr && !tInstalled->mInfo.mExecutables.isEmpty()) {
            watch(*tInstalled, pFolders);
        }
    }
}

// All versions of the package count: one that was started before an earlier update may still be running.
void AppWait::watch(const packages::InstalledPackage& pPackage, const packages::PackageFolders& pFolders)
{
    const QString tVersions = QFileInfo(pFolders.absolute(pPackage.mFolder)).path();
    const QString tCanonical = QFileInfo(tVersions).canonicalFilePath();
    const QString tPrefix = (tCanonical.isEmpty() ? tVersions : tCanonical) + u'/';
    const QString tTitle = pPackage.mInfo.mTitle.bestValue(u"en"_s);
    Watched tWatched{
        tTitle.isEmpty() ? pPackage.mInfo.mName : tTitle, tPrefix, pPackage.mInfo.mExecutables, {}};
    const QStringList tFolders = QDir(tPrefix).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& tFolder : tFolders) {
        for (const QString& tExecutable : tWatched.mExecutables) {
            const QString tPath = tPrefix + tFolder + u'/' + tExecutable;
            if (const auto tFile = os::fileIdAt(QFile::encodeName(tPath)); tFile && needsInterpreter(tPath)) {
                tWatched.mScripts.append(*tFile);
            }
        }
    }
    mWatched.append(tWatched);
}

// An interpreter runs a script that its arguments name. Any user can choose the arguments, so scripts are
// only looked up in folders of administrators, not on disks and servers that may never answer.
bool AppWait::isRunBy(const os::Process& pProcess, const Watched& pWatched) const
{
    if (pWatched.mScripts.isEmpty()) {
        return false;
    }
    return std::any_of(
        pProcess.mArguments.begin(), pProcess.mArguments.end(), [this, &pWatched](const QByteArray& pPath) {
            const bool tIsOurs = !pPath.contains("/../") && std::any_of(mPlaces.begin(), mPlaces.end(),
                                                                        [&pPath](const QByteArray& pPlace) {
                                                                            return pPath.startsWith(pPlace);
                                                                        });
            const auto tFile = tIsOurs ? os::fileIdAt(pPath) : std::nullopt;
            return tFile && pWatched.mScripts.contains(*tFile);
        });
}

const AppWait::Watched* AppWait::watchedOf(const os::Process& pProcess) const
{
    for (const Watched& tWatched : mWatched) {
        if (isRunBy(pProcess, tWatched)) {
            return &tWatched;
        }
        if (!pProcess.mExecutable.startsWith(tWatched.mPrefix)) {
            continue;
        }
        const QString tBelow = pProcess.mExecutable.mid(tWatched.mPrefix.size());
        if (tWatched.mExecutables.contains(tBelow.section(u'/', 1))) {
            return &tWatched;
        }
    }
    return nullptr;
}

QStringList AppWait::running(QList<pid_t>* pPids)
{
    pPids->clear();
    QStringList tNames;
    const QList<os::Process> tAll = mProcesses.running();
    for (const os::Process& tProcess : tAll) {
        if (const Watched* tWatched = watchedOf(tProcess)) {
            pPids->append(tProcess.mPid);
            tNames.append(u"%1 (process %2, %3)"_s.arg(tWatched->mTitle, tProcess.mName).arg(tProcess.mPid));
        }
    }
    return tNames;
}

Failure AppWait::wait(int pSeconds)
{
    if (mWatched.isEmpty()) {
        return {};
    }
    const QDeadlineTimer tDeadline(pSeconds * Q_INT64_C(1000));
    QStringList tTold;
    QList<pid_t> tPids;
    for (QStringList tNames = running(&tPids); !tNames.isEmpty(); tNames = running(&tPids)) {
        if (mAbort.isSet()) {
            return Failure::canceled();
        }
        if (tTold.isEmpty()) {
            mReporter.begin(vkcore::ActivityWaitingForApps, true, 0, false);
        }
        const QString tList = tNames.join(u", "_s);
        if (tDeadline.hasExpired()) {
            return {Failure::Kind::AppsRunning,
                    u"The update could not be installed because applications were running: %1. Close "
                    "them and start the update again"_s.arg(tList)};
        }
        if (tTold != tNames) {
            tTold = tNames;
            mReporter.setText(tList);
            mReporter.notify(MessageInformation, u"Please close these applications: %1"_s.arg(tList));
        }
        waitForEnd(tPids, static_cast<int>(qMin<qint64>(tDeadline.remainingTime(), INT_MAX)));
    }
    return mAbort.isSet() ? Failure::canceled() : Failure();
}

// Until one of them ends, the run is aborted or the time is over.
void AppWait::waitForEnd(const QList<pid_t>& pPids, int pMilliseconds)
{
    std::vector<pollfd> tPolls{{mAbort.fd(), POLLIN, 0}};
    int tTime = qMin(pMilliseconds, sRecheckMs);
    for (const pid_t tPid : pPids) {
        const int tFd = mProcesses.openProcess(tPid);
        if (tFd >= 0) {
            tPolls.push_back({tFd, POLLIN, 0});
        } else {
            tTime = errno == ESRCH ? 0 : qMin(tTime, sPollMs);
        }
    }
    ::poll(tPolls.data(), tPolls.size(), tTime);
    for (size_t tIndex = 1; tIndex < tPolls.size(); ++tIndex) {
        ::close(tPolls[tIndex].fd);
    }
}

} // namespace tarn::vkservice::update
