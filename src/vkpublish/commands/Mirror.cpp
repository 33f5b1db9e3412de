#include "mirror/Mirror.h"

#include "CommandLine.h"
#include "commands/Commands.h"
#include "mirror/Origin.h"
#include "publication/Layout.h"

#include "os/FileTools.h"
#include "tuf/Updater.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QLocale>

#include <chrono>
#include <thread>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sSecondsPerDay = 24 * 60 * 60;
constexpr int sBytesPerKib = 1024;

void declare(CommandLine* pLine)
{
    pLine->addArgument(u"URL"_s, u"Address or folder of the repository"_s);
    pLine->addArgument(u"DIR"_s, u"Folder of the copy"_s);
    pLine->addOption(u"root"_s, u"The root to start from, which you trust; needed the first time"_s,
                     u"FILE"_s);
    pLine->addOption(u"check"_s, u"Read and prove the files that are there, and get damaged ones again"_s);
    pLine->addOption(u"prune"_s, u"Then delete files that no state has named for a while"_s);
    pLine->addOption(u"prune-days"_s, u"Minimum time without a name, in days"_s, u"DAYS"_s, u"1"_s);
    pLine->addOption(u"rate-limit"_s, u"The most to get in a second, in KiB; 0: no limit"_s, u"KIB"_s,
                     u"0"_s);
    pLine->addOption(u"netrc"_s, u"File with user and password; by default ~/.netrc"_s, u"FILE"_s);
    pLine->addOption(u"ca-file"_s, u"CA certificates to trust for the server"_s, u"FILE"_s);
}

QString counted(int pCount, const QString& pWhat)
{
    return u"%1 %2"_s.arg(pCount).arg(pCount == 1 ? pWhat : pWhat + u's');
}

void print(const MirrorReport& pReport, const QString& pFolder)
{
    const QString tUntil = pReport.mExpires.toUTC().toString(Qt::ISODate);
    if (!pReport.mPackages) {
        say(u"Nothing new, valid until %1"_s.arg(tUntil));
    } else {
        say(u"Mirrored %1, valid until %2: %3 fetched, %4"_s.arg(
            counted(*pReport.mPackages, u"package"_s), tUntil, counted(pReport.mFiles, u"file"_s),
            QLocale::c().formattedDataSize(pReport.mBytes)));
    }
    if (pReport.mPruned > 0) {
        say(u"Deleted %1 that no state names any more"_s.arg(counted(pReport.mPruned, u"file"_s)));
    }
    for (const QString& tPath : pReport.mForeign) {
        complain(u"%1/%2 is not a file of the mirror; it was left alone"_s.arg(pFolder, tPath));
    }
}

QString absolute(const QString& pPath)
{
    return QDir::cleanPath(QDir::current().absoluteFilePath(pPath));
}

// A failure of the usage.
Failure check(const CommandLine& pLine, const Result<Place>& pPlace, const QString& pFolder)
{
    if (!pPlace) {
        return pPlace.failure();
    }
    if (!pPlace->mIsWeb && (isInside(pFolder, pPlace->mPath) || isInside(pPlace->mPath, pFolder))) {
        return Failure::content(u"A repository can't be mirrored into itself"_s);
    }
    // It would count as one without a password.
    const QFileInfo tNetrc(pLine.value("netrc"));
    return pLine.isSet("netrc") && (!tNetrc.isReadable() || tNetrc.isDir())
               ? Failure::content(u"--netrc: %1 can't be read"_s.arg(pLine.value("netrc")))
               : Failure();
}

Failure mirror(const CommandLine& pLine, const Place& pPlace, const HttpsAccess& pAccess, MirrorJob* pJob,
               MirrorReport* pReport)
{
    os::FileSystem& tFileSystem = os::realFileSystem();
    if (pLine.isSet("root")) {
        const auto tRoot = os::readFile(tFileSystem, pLine.value("root"), tuf::Limits().mRootLength);
        if (!tRoot) {
            return tRoot.failure();
        }
        pJob->mRoot = *tRoot;
    }
    const std::unique_ptr<Origin> tOrigin = openOrigin(tFileSystem, pPlace, pAccess);
    return Mirror(tFileSystem, absolute(pLine.argument(1)), *tOrigin).run(*pJob, pReport);
}

} // namespace

int cmdMirror(const QStringList& pArguments)
{
    CommandLine tLine(u"mirror"_s,
                      u"Makes a folder a verified copy of a repository, for machines that use it as their "
                      "server. Gets only what has changed; run it often."_s);
    declare(&tLine);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const std::optional<int> tDays = tLine.number("prune-days", 0, 3650);
    const std::optional<int> tRate = tLine.number("rate-limit", 0, 10'000'000);
    if (!tDays || !tRate) {
        return StatusUsage;
    }
    const Result<Place> tPlace = readPlace(tLine.argument(0));
    if (const Failure tFailure = check(tLine, tPlace, absolute(tLine.argument(1)))) {
        complain(tFailure.mText);
        return StatusUsage;
    }
    MirrorJob tJob;
    tJob.mCheck = tLine.isSet("check");
    tJob.mNow = QDateTime::currentDateTimeUtc();
    tJob.mWait = [](int pSeconds) { std::this_thread::sleep_for(std::chrono::seconds(pSeconds)); };
    if (tLine.isSet("prune")) {
        tJob.mPruneSeconds = qint64(*tDays) * sSecondsPerDay;
    }
    const HttpsAccess tAccess{.mFolder = {},
                              .mCaFile = tLine.value("ca-file"),
                              .mNetrcFile = tLine.isSet("netrc") ? absolute(tLine.value("netrc")) : QString(),
                              .mBytesPerSecond = qint64(*tRate) * sBytesPerKib};
    MirrorReport tReport;
    if (const Failure tFailure = mirror(tLine, *tPlace, tAccess, &tJob, &tReport)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    print(tReport, absolute(tLine.argument(1)));
    return StatusDone;
}

} // namespace tarn::vkpublish
