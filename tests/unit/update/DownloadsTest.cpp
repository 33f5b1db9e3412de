#include "UpdateFixture.h"

#include "os/Confinement.h"

#include <fcntl.h>
#include <unistd.h>

using namespace tarn;
using namespace tarn::vkservice;
using namespace tarn::vkservice::update;

using DownloadsTest = UpdateFixture;

// The targets key can sign any text as a hash; none becomes the name of a file.
TEST_F(DownloadsTest, ASignedHashNamesNoFileOutsideTheDownloads)
{
    mRepository.set(mTargets.value(q("lib")), "hashes", QJsonObject{{q("sha256"), q("../../victim")}});
    mRepository.publish();
    const QString tVictim = mMachine.path(q("victim"));
    run(ResultVerificationFailed);
    EXPECT_FALSE(QFile::exists(tVictim)) << "it is not made";
    writeFile(tVictim, "mine");
    run(ResultVerificationFailed);
    EXPECT_EQ(readFile(tVictim), "mine") << "it is neither added to nor removed";
}

TEST_F(DownloadsTest, WhatIsPutUnderTheNameOfADownloadHarmsNothing)
{
    const QString tDownloads = mMachine.path(q("state/downloads"));
    const QString tHash = QFileInfo(mTargets.value(q("lib"))).fileName().section(u'.', 0, 0);
    const QByteArray tName = QFile::encodeName(tDownloads + u'/' + tHash);
    const QByteArray tVictim = QFile::encodeName(mMachine.path(q("victim")));
    const std::tuple<const char*, std::function<int()>, ResultCode> tCases[] = {
        {"link", [&] { return ::symlink(tVictim, tName); }, ResultSuccess},
        {"second name", [&] { return ::link(tVictim, tName); }, ResultSuccess},
        {"pipe", [&] { return ::mkfifo(tName, 0600); }, ResultSuccess},
        {"folder", [&] { return ::mkdir(tName, 0700); }, ResultInstallFailed},
        {"link for the folder",
         [&] {
             return ::rmdir(QFile::encodeName(tDownloads)) + ::symlink("..", QFile::encodeName(tDownloads));
         },
         ResultInstallFailed},
    };
    for (const auto& [tWhat, tPut, tCode] : tCases) {
        SCOPED_TRACE(tWhat);
        QFile::remove(mMachine.path(q("install/current")));
        QDir(tDownloads).removeRecursively();
        QDir().mkpath(tDownloads);
        writeFile(mMachine.path(q("victim")), "mine");
        ASSERT_EQ(tPut(), 0);
        run(tCode);
        EXPECT_EQ(readFile(mMachine.path(q("victim"))), "mine");
    }
}

// The second line of defense: the kernel denies any wrong path that a bug in the run uses.
TEST_F(DownloadsTest, TheKernelRefusesARunEveryWrongPath)
{
    if (!os::Confinement::isAvailable()) {
        GTEST_SKIP() << "this kernel has no Landlock";
    }
    const QByteArray tFile = QFile::encodeName(mMachine.path(q("victim")));
    const QByteArray tNew = tFile + ".new";
    const QByteArray tOwn = QFile::encodeName(mMachine.path(q("state/own")));
    const QByteArray tLink = QFile::encodeName(mMachine.path(q("state/link")));
    writeFile(mMachine.path(q("victim")), "mine");
    QDir().mkpath(mMachine.path(q("state")));
    ASSERT_EQ(::symlink(tFile, tLink), 0);
    const auto tOpen = [](const QByteArray& pPath, int pFlags) {
        const int tFd = ::open(pPath, pFlags | O_CLOEXEC, 0600);
        return tFd < 0 ? -1 : ::close(tFd);
    };
    const std::pair<int, std::function<int()>> tTries[] = {
        {EACCES, [&] { return tOpen(tNew, O_WRONLY | O_CREAT); }},
        {EACCES, [&] { return tOpen(tFile, O_WRONLY | O_TRUNC); }},
        {EACCES, [&] { return tOpen(tFile, O_RDONLY); }},
        {EACCES, [&] { return tOpen(tLink, O_WRONLY); }},
        {EACCES, [&] { return ::unlink(tFile); }},
        {EACCES, [&] { return ::rename(tFile, tOwn); }},
        {EACCES, [&] { return tOpen(tOwn, O_WRONLY | O_CREAT) + ::rename(tOwn, tNew); }},
        {EACCES, [&] { return ::mkdir(tNew, 0700); }},
        {EXDEV, [&] { return ::link(tFile, tLink + "2"); }},
        {0, [&] { return ::truncate(tOwn, 1) + ::unlink(tOwn); }}, // in its own folder
    };
    // The last activity before it installs.
    const QByteArray tLast = "unlinkat " + QFileInfo(mTargets.value(q("lib"))).fileName().left(64).toUtf8();
    QList<int> tErrors;
    QList<int> tExpected;
    // Called on the thread of the run.
    mMachine.fileSystem().mObserver = [&](int, const QByteArray& pWhat) {
        if (pWhat != tLast || !tErrors.isEmpty()) {
            return;
        }
        for (const auto& [tErrno, tTry] : tTries) {
            tErrors.append(tTry() == 0 ? 0 : errno);
            tExpected.append(tErrno);
        }
    };
    run(ResultSuccess);
    expectInstalled();
    EXPECT_EQ(tErrors, tExpected);
    EXPECT_EQ(tErrors.size(), std::size(tTries));
    EXPECT_EQ(readFile(mMachine.path(q("victim"))), "mine");
    EXPECT_EQ(tOpen(tFile, O_RDWR), 0) << "this thread is free";
}

// While an application stays open, releases are downloaded one after the other and none is installed.
TEST_F(DownloadsTest, KeepsNoDownloadsThatNoPlanNames)
{
    const QString tFile = mTargets.value(q("lib"));
    const QString tPart = QFileInfo(tFile).fileName().section(u'.', 0, 0);
    const QDir tDownloads(mMachine.path(q("state/downloads")));
    const QString tFrames = tPart + q(".7-12");
    for (const QString& tName :
         {tPart, tFrames, QString(64, u'0'), QString(128, u'0'), QString(64, u'0') + q(".1-2"), q("notes")}) {
        writeFile(tDownloads.filePath(tName), readFile(tFile).first(10));
    }
    QFile::remove(tFile);
    run(ResultInstallFailed);
    const QString tApp = QFileInfo(mTargets.value(q("app"))).fileName().section(u'.', 0, 0);
    const QStringList tNames = tDownloads.entryList(QDir::Files);
    EXPECT_EQ(QSet<QString>(tNames.begin(), tNames.end()), (QSet<QString>{tApp, tPart, tFrames, q("notes")}));
}
