#include "update/AppWait.h"

#include "os/AbortFlag.h"
#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "packages/Manifest.h"
#include "packages/PackageFolders.h"
#include "update/Plan.h"
#include "update/Reporter.h"

#include <QtCore/QDeadlineTimer>
#include <QtCore/QDir>
#include <QtCore/QFileInfo>

#include <poll.h>
#include <unistd.h>

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
    : mProcesses(pProcesses), mReporter(pReporter), mAbort(pAbort)
{
    const QStringList tRoots = pFolders.roots();
    for (const QString& tRoot : tRoots) {
        mSearch.mPlaces.append(tRoot);
        if (const QString tCanonical = QFileInfo(tRoot).canonicalFilePath(); !tCanonical.isEmpty()) {
            mSearch.mPlaces.append(tCanonical);
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
    const QString tFolder = tCanonical.isEmpty() ? tVersions : tCanonical;
    const QString tTitle = pPackage.mInfo.mTitle.bestValue(u"en"_s);
    mWatched.append(
        {tTitle.isEmpty() ? pPackage.mInfo.mName : tTitle, tFolder + u'/', pPackage.mInfo.mExecutables});
    mSearch.mFolders.append(tFolder);
    const QStringList tNames = QDir(tFolder).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& tName : tNames) {
        for (const QString& tExecutable : pPackage.mInfo.mExecutables) {
            const QString tPath = tFolder + u'/' + tName + u'/' + tExecutable;
            if (QFileInfo::exists(tPath) && needsInterpreter(tPath)) {
                mSearch.mScripts.append(tPath);
            }
        }
    }
}

const AppWait::Watched* AppWait::watchedOf(const os::Process& pProcess) const
{
    for (const Watched& tWatched : mWatched) {
        if (pProcess.mFile.startsWith(tWatched.mPrefix) &&
            tWatched.mExecutables.contains(pProcess.mFile.mid(tWatched.mPrefix.size()).section(u'/', 1))) {
            return &tWatched;
        }
    }
    return nullptr;
}

// If nobody can say what runs, those that were seen before still do, until they end.
void AppWait::look()
{
    const Result<QList<os::Process>> tFound = mProcesses.running(mSearch);
    if (tFound) {
        mRunning = *tFound;
        mRunning.removeIf([this](const os::Process& pProcess) { return watchedOf(pProcess) == nullptr; });
        return;
    }
    if (!mHasWarned) {
        mHasWarned = true;
        mReporter.notify(MessageWarning,
                         u"Applications may be running that are not seen: %1"_s.arg(tFound.failure().mText));
    }
    mRunning.removeIf([this](const os::Process& pProcess) {
        pollfd tPoll = {mProcesses.openProcess(pProcess.mPid), POLLIN, 0};
        const os::Descriptor tFd(os::realFileSystem(), tPoll.fd);
        return tFd.isOpen() ? ::poll(&tPoll, 1, 0) == 1 : errno == ESRCH;
    });
}

QStringList AppWait::names() const
{
    QStringList tNames;
    for (const os::Process& tProcess : mRunning) {
        tNames.append(
            u"%1 (process %2, %3)"_s.arg(watchedOf(tProcess)->mTitle, tProcess.mName).arg(tProcess.mPid));
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
    for (look(); !mRunning.isEmpty(); look()) {
        if (mAbort.isSet()) {
            return Failure::canceled();
        }
        if (tTold.isEmpty()) {
            mReporter.begin(vkcore::ActivityWaitingForApps, true, 0, false);
        }
        const QStringList tNames = names();
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
        waitForEnd(static_cast<int>(qMin<qint64>(tDeadline.remainingTime(), INT_MAX)));
    }
    return mAbort.isSet() ? Failure::canceled() : Failure();
}

// Until one of them ends, the run is aborted or the time is over.
void AppWait::waitForEnd(int pMilliseconds)
{
    std::vector<pollfd> tPolls{{mAbort.fd(), POLLIN, 0}};
    int tTime = qMin(pMilliseconds, sRecheckMs);
    for (const os::Process& tProcess : std::as_const(mRunning)) {
        const int tFd = mProcesses.openProcess(tProcess.mPid);
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
