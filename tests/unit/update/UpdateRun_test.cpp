#include "UpdateFixture.h"

#include "os/Confinement.h"

#include <QtCore/QProcess>

using namespace tarn::vkservice;
using namespace tarn::vkservice::update;
using namespace tarn::vkcore;

using UpdateRunTest = UpdateFixture;

TEST_F(UpdateRunTest, InstallsEverythingAndThenNothing)
{
    const RunResult tResult = run(ResultSuccess);
    EXPECT_EQ(tResult.mInstalledCount, 3);
    expectInstalled();
    EXPECT_TRUE(QFileInfo(mMachine.installed(q("app/bin/app"))).isExecutable());
    EXPECT_FALSE(QFileInfo(mMachine.installed(q("app/doc/a.txt"))).isExecutable());
    EXPECT_EQ(text(mMachine.log()), "app 1.0.0 ok\nlib 1.0.0 ok\nmaps 3.1.0 ok");
    EXPECT_EQ(text(mMachine.log(true)), "app 1.0.0 ok\nmaps 3.1.0 ok");
    const QList<ServiceActivity> tActivities{ActivityDownloading, ActivityVerifying, ActivityPreparing,
                                             ActivityInstalling, ActivityRemovingObsolete};
    EXPECT_EQ(mMachine.mActivities, tActivities);

    const RunResult tAgain = mMachine.run();
    EXPECT_EQ(tAgain.mCode, ResultSuccess);
    EXPECT_EQ(tAgain.mInstalledCount, 0);
    EXPECT_EQ(mMachine.generation(), 1);
    EXPECT_EQ(mMachine.log().size(), 3);
}

TEST_F(UpdateRunTest, UpdatesAChildAndNamesItsParentInTheLog)
{
    ASSERT_EQ(mMachine.run().mCode, ResultSuccess);
    const QString tOld = QFileInfo(mMachine.installed(q("lib"))).canonicalFilePath();
    package("lib").mVersion = q("1.0.1");
    package("lib").mFiles = {{q("other.so"), "new"}};
    mRepository.remove(q("maps")); // no longer offered, and stays
    mRepository.remove(q("lib"));
    mRepository.add(package("lib"));
    mRepository.publish();
    EXPECT_EQ(mMachine.run().mInstalledCount, 1);
    expectInstalled();
    EXPECT_EQ(text(mMachine.packages()), "app 1.0.0\nlib 1.0.1\nmaps 3.1.0");
    EXPECT_TRUE(QFileInfo::exists(tOld)) << "the previous generation needs it";
    EXPECT_EQ(text(mMachine.log(true)), "app 1.0.0 child_packages_updated\napp 1.0.0 ok\nmaps 3.1.0 ok");
    EXPECT_EQ(text(mMachine.log().filter(q("lib"))), "lib 1.0.0 ok\nlib 1.0.1 ok");
}

TEST_F(UpdateRunTest, MovesDataToANewFolder)
{
    mMachine.request().mDataDir = mMachine.path(q("data1"));
    ASSERT_EQ(mMachine.run().mCode, ResultSuccess);
    mMachine.request().mDataDir = mMachine.path(q("data2"));
    EXPECT_EQ(mMachine.run().mInstalledCount, 1);
    expectInstalled();
    EXPECT_EQ(QFileInfo(mMachine.installed(q("maps"))).canonicalFilePath().section(u'/', -4, -4), q("data2"));
}

// Whatever is wrong with a server: the result says so, nothing that was installed changes, and the next run
// with a sound server succeeds.
TEST_F(UpdateRunTest, ChangesNothingWhenTheServerIsWrong)
{
    ASSERT_EQ(mMachine.run().mCode, ResultSuccess);
    const FileMap tInstalled = mMachine.currentFiles();
    const QString tKeep = mMachine.path(q("keep"));
    const auto tCopy = [](const QString& pFrom, const QString& pTo) {
        QProcess::execute(q("rm"), {q("-rf"), pTo});
        QProcess::execute(q("cp"), {q("-a"), pFrom, pTo});
    };
    QString tTarget;
    for (TestPackage& tPackage : mPackages) {
        tPackage.mVersion = q("5.0");
        tPackage.mFiles.insert(q("news"), "five " + tPackage.mName.toUtf8());
        tTarget = mRepository.add(tPackage);
    }
    mRepository.publish();
    tCopy(mRepository.path(), tKeep);

    const auto tPath = [this](const char* pBelow) { return mRepository.path(q(pBelow)); };
    const auto tExpire = [&] {
        mRepository.setExpiry(QDateTime::currentDateTimeUtc().addSecs(-1));
        mRepository.publish();
    };
    const auto tCut = [&] { writeFile(tTarget, readFile(tTarget).chopped(1)); };
    const auto tStretch = [&] { writeFile(tTarget, readFile(tTarget) + "x"); };
    const auto tPipe = [&] {
        QFile::remove(tTarget);
        QProcess::execute(q("mkfifo"), {tTarget});
    };
    const struct
    {
        const char* mName;
        std::function<void()> mSpoil;
        ResultCode mCode;
        int mInstalled;
    } tCases[] = {
        {"changed timestamp", [&] { spoil(tPath("metadata/timestamp.json")); }, ResultVerificationFailed, 0},
        {"changed snapshot", [&] { spoil(tPath("metadata/2.snapshot.json")); }, ResultVerificationFailed, 0},
        {"changed targets", [&] { spoil(tPath("metadata/2.targets.json")); }, ResultVerificationFailed, 0},
        {"endless timestamp", [&] { writeFile(tPath("metadata/timestamp.json"), QByteArray(1 << 20, ' ')); },
         ResultVerificationFailed, 0},
        {"expired", tExpire, ResultVerificationFailed, 0},
        {"no timestamp", [&] { QFile::remove(tPath("metadata/timestamp.json")); }, ResultUnreachable, 0},
        {"no repository", [&] { QDir(mRepository.path()).removeRecursively(); }, ResultUnreachable, 0},
        {"changed package", [&] { spoil(tTarget); }, ResultVerificationFailed, 2},
        {"cut package", tCut, ResultVerificationFailed, 2},
        {"stretched package", tStretch, ResultVerificationFailed, 2},
        {"no package", [&] { QFile::remove(tTarget); }, ResultInstallFailed, 2},
        {"pipe for a package", tPipe, ResultInstallFailed, 2},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        // Each on a machine of its own, in the state after the first run.
        TestMachine tMachine(mRepository.root());
        tMachine.setServers({mRepository.uri()});
        for (const char* tFolder : {"state", "install"}) {
            tCopy(mMachine.path(q(tFolder)), tMachine.path(q(tFolder)));
        }
        tCase.mSpoil();
        const RunResult tResult = tMachine.run();
        EXPECT_EQ(tResult.mCode, tCase.mCode) << tResult.mText;
        EXPECT_EQ(tResult.mInstalledCount, tCase.mInstalled);
        EXPECT_GT(tResult.mText.size(), resultText(tResult.mCode).size());
        if (tCase.mInstalled == 0) {
            EXPECT_EQ(tMachine.currentFiles(), tInstalled);
        } else {
            EXPECT_EQ(text(tMachine.packages()), "app 5.0.0\nlib 5.0.0\nmaps 3.1.0");
            EXPECT_EQ(text(tMachine.log().filter(q("error"))), "maps 5.0.0 error");
            EXPECT_TRUE(tMachine.mMessages.last().contains(q("maps"))) << text(tMachine.mMessages);
        }
        tCopy(tKeep, mRepository.path());
        EXPECT_EQ(tMachine.run().mCode, ResultSuccess);
        EXPECT_EQ(tMachine.currentFiles(), filesOf(mPackages));
        EXPECT_EQ(text(tMachine.litter()), "");
    }
}

TEST_F(UpdateRunTest, RefusesAHostilePackageAndInstallsTheOthers)
{
    const TestPackage tEvil{q("evil")};
    mRepository.add(infoOf(tEvil), makeArchive({{"../../../evil", "x"}}));
    mRepository.publish();
    const RunResult tResult = run(ResultInstallFailed);
    EXPECT_TRUE(tResult.mText.contains(q("evil"))) << tResult.mText;
    expectInstalled();
}

TEST_F(UpdateRunTest, NeedsTheRootFileOfTheRepository)
{
    for (const QByteArray& tRoot : {QByteArray(), TestRepository().root(), QByteArray("{}")}) {
        TestMachine tMachine(tRoot);
        tMachine.setServers({mRepository.uri()});
        if (tRoot.isEmpty()) {
            QFile::remove(tMachine.request().mRootFile);
        }
        const RunResult tResult = tMachine.run();
        EXPECT_EQ(tResult.mCode, ResultVerificationFailed) << tResult.mText;
        writeFile(tMachine.request().mRootFile, mRepository.root());
        EXPECT_EQ(tMachine.run().mCode, ResultSuccess) << "the administrator puts in the right one";
    }
}

TEST_F(UpdateRunTest, SaysWhatIsMissingForARun)
{
    const QString tFile = mMachine.path(q("file"));
    writeFile(tFile, "");
    const QString tUri = mRepository.uri();
    const struct
    {
        const char* mName;
        std::function<void(RunRequest&)> mSpoil;
        ResultCode mCode;
    } tCases[] = {
        {"no server", [](RunRequest& pRequest) { pRequest.mServers.clear(); }, ResultNoServer},
        {"plain http", [](RunRequest& pRequest) { pRequest.mServers[0].mUri = q("http://localhost/"); },
         ResultNoServer},
        {"no address", [](RunRequest& pRequest) { pRequest.mServers[0].mUri.clear(); }, ResultNoServer},
        {"install folder below a file",
         [&](RunRequest& pRequest) { pRequest.mInstallDir = tFile + q("/install"); }, ResultInstallFailed},
        {"relative folder", [](RunRequest& pRequest) { pRequest.mInstallDir = q("install"); },
         ResultInstallFailed},
    };
    const RunRequest tGood = mMachine.request();
    for (const auto& tCase : tCases) {
        mMachine.request() = tGood;
        tCase.mSpoil(mMachine.request());
        EXPECT_EQ(mMachine.run().mCode, tCase.mCode) << tCase.mName;
    }
}

TEST_F(UpdateRunTest, FallsBackToAServerThatIsSound)
{
    TestRepository tLying; // of the same publisher, but with other files
    const QString tCopy = mMachine.path(q("mirror"));
    QProcess::execute(q("cp"), {q("-a"), mRepository.path(), tCopy});
    spoil(QDir(tCopy + q("/targets")).entryInfoList({q("*lib*")}).first().filePath());
    const QString tLyingUri = QUrl::fromLocalFile(tCopy).toString();
    mMachine.setServers({q("file:///nowhere"), tLying.uri(), tLyingUri, mRepository.uri()});
    run(ResultSuccess);
    expectInstalled();
    EXPECT_EQ(mMachine.mMessages.size(), 3) << text(mMachine.mMessages);
}

// A server may have what is newest and not be able to give all of it: the rest is installed, and the result
// tells of it. One that is behind is no help.
TEST_F(UpdateRunTest, TellsOfWhatNoServerCouldGive)
{
    const QString tMirror = mMachine.path(q("mirror"));
    QProcess::execute(q("cp"), {q("-a"), mRepository.path(), tMirror});
    package("maps").mVersion = q("4.0");
    QFile::remove(mRepository.add(package("maps")));
    mRepository.publish();
    mMachine.setServers({mRepository.uri(), QUrl::fromLocalFile(tMirror).toString()});
    const RunResult tResult = run(ResultInstallFailed);
    EXPECT_TRUE(tResult.mText.contains(q("maps")));
    EXPECT_EQ(mMachine.packages().size(), tResult.mInstalledCount);
    EXPECT_GE(tResult.mInstalledCount, 2);
}

TEST_F(UpdateRunTest, GoesOnWithAPartialDownload)
{
    const QByteArray tArchive = readFile(mTargets.value(q("lib")));
    const QString tHash = QFileInfo(mTargets.value(q("lib"))).fileName().section(u'.', 0, 0);
    const QString tPart = mMachine.path(q("state/downloads/")) + tHash;
    const qsizetype tHalf = tArchive.size() / 2;
    // Only the rest of the file can be had from the server.
    writeFile(tPart, tArchive.first(tHalf));
    writeFile(mTargets.value(q("lib")), QByteArray(tHalf, '?') + tArchive.mid(tHalf));
    EXPECT_EQ(mMachine.run().mCode, ResultSuccess);
    expectInstalled();
    EXPECT_TRUE(QDir(mMachine.path(q("state/downloads"))).isEmpty());
}

TEST_F(UpdateRunTest, GetsOverAPartialDownloadThatIsWrong)
{
    const QByteArray tArchive = readFile(mTargets.value(q("lib")));
    const QString tHash = QFileInfo(mTargets.value(q("lib"))).fileName().section(u'.', 0, 0);
    for (const qsizetype tSize : {qsizetype(1), tArchive.size(), tArchive.size() + 1}) {
        TestMachine tMachine(mRepository.root());
        tMachine.setServers({mRepository.uri()});
        writeFile(tMachine.path(q("state/downloads/")) + tHash, QByteArray(tSize, '?'));
        EXPECT_EQ(tMachine.run().mCode, ResultSuccess) << tSize;
        EXPECT_EQ(tMachine.currentFiles(), filesOf(mPackages));
    }
}

// With the key of the targets one can sign any text as a hash; none becomes the name of a file.
TEST_F(UpdateRunTest, ASignedHashNamesNoFileOutsideTheDownloads)
{
    const QString tFile = mTargets.value(q("lib"));
    mRepository.setHash(tFile, q("../../victim"));
    mRepository.publish();
    const QString tCopy = mMachine.path(q("one/two/mirror"));
    QDir().mkpath(mMachine.path(q("one/two")));
    QProcess::execute(q("cp"), {q("-a"), mRepository.path(), tCopy});
    mMachine.setServers({QUrl::fromLocalFile(tCopy).toString()});
    const QString tVictim = mMachine.path(q("victim"));
    run(ResultVerificationFailed);
    EXPECT_FALSE(QFile::exists(tVictim)) << "it is not made";
    // What the server would send for it.
    writeFile(mMachine.path(q("one/two/victim.") + QFileInfo(tFile).fileName().section(u'.', 1)), "more");
    writeFile(tVictim, "mine");
    run(ResultVerificationFailed);
    EXPECT_EQ(readFile(tVictim), "mine") << "nothing is added, and it is not removed";
}

TEST_F(UpdateRunTest, WhatIsPutUnderTheNameOfADownloadHarmsNothing)
{
    const QString tDownloads = mMachine.path(q("state/downloads"));
    const QString tHash = QFileInfo(mTargets.value(q("lib"))).fileName().section(u'.', 0, 0);
    const QByteArray tName = QFile::encodeName(tDownloads + u'/' + tHash);
    const QByteArray tVictim = QFile::encodeName(mMachine.path(q("victim")));
    const struct
    {
        const char* mName;
        std::function<int()> mPut;
        ResultCode mCode;
    } tCases[] = {
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
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        QFile::remove(mMachine.path(q("install/current")));
        QDir(tDownloads).removeRecursively();
        QDir().mkpath(tDownloads);
        writeFile(mMachine.path(q("victim")), "mine");
        ASSERT_EQ(tCase.mPut(), 0);
        run(tCase.mCode);
        EXPECT_EQ(readFile(mMachine.path(q("victim"))), "mine");
    }
}

// The second wall: whatever path a fault in the run came up with, the kernel refuses it.
TEST_F(UpdateRunTest, TheKernelRefusesARunEveryWrongPath)
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
    const struct
    {
        const char* mName;
        std::function<int()> mTry;
        int mErrno; // 0: it has to work
    } tCases[] = {
        {"make", [&] { return tOpen(tNew, O_WRONLY | O_CREAT); }, EACCES},
        {"append", [&] { return tOpen(tFile, O_WRONLY | O_APPEND); }, EACCES},
        {"empty", [&] { return tOpen(tFile, O_WRONLY | O_TRUNC); }, EACCES},
        {"read", [&] { return tOpen(tFile, O_RDONLY); }, EACCES},
        {"through a link", [&] { return tOpen(tLink, O_WRONLY); }, EACCES},
        {"remove", [&] { return ::unlink(tFile); }, EACCES},
        {"move here", [&] { return ::rename(tFile, tOwn); }, EACCES},
        {"move there", [&] { return tOpen(tOwn, O_WRONLY | O_CREAT) + ::rename(tOwn, tNew); }, EACCES},
        {"folder", [&] { return ::mkdir(tNew, 0700); }, EACCES},
        {"link", [&] { return ::symlink("x", tNew); }, EACCES},
        {"second name", [&] { return ::link(tFile, tLink + "2"); }, EXDEV},
        {"in its own folder", [&] { return ::truncate(tOwn, 1) + ::unlink(tOwn); }, 0},
    };
    QList<int> tErrors;
    // Called on the thread of the run.
    mMachine.fileSystem().mObserver = [&](int, const QByteArray& pWhat) {
        if (tErrors.isEmpty() && pWhat == "syncfs") {
            for (const auto& tCase : tCases) {
                tErrors.append(tCase.mTry() == 0 ? 0 : errno);
            }
        }
    };
    run(ResultSuccess);
    expectInstalled();
    ASSERT_EQ(tErrors.size(), std::size(tCases));
    for (qsizetype tIndex = 0; tIndex < tErrors.size(); ++tIndex) {
        EXPECT_EQ(tErrors.at(tIndex), tCases[tIndex].mErrno) << tCases[tIndex].mName;
    }
    EXPECT_EQ(readFile(mMachine.path(q("victim"))), "mine");
    EXPECT_EQ(tOpen(tFile, O_RDWR), 0) << "this thread is free";
}

// While an application stays open, one release after the other is fetched and none installed.
TEST_F(UpdateRunTest, KeepsNoDownloadsThatNoPlanNames)
{
    const QString tFile = mTargets.value(q("lib"));
    const QString tPart = QFileInfo(tFile).fileName().section(u'.', 0, 0);
    const QDir tDownloads(mMachine.path(q("state/downloads")));
    for (const QString& tName : {tPart, QString(64, u'0'), QString(128, u'0'), q("notes")}) {
        writeFile(tDownloads.filePath(tName), readFile(tFile).first(10));
    }
    QFile::remove(tFile);
    run(ResultInstallFailed);
    const QString tApp = QFileInfo(mTargets.value(q("app"))).fileName().section(u'.', 0, 0);
    const QStringList tNames = tDownloads.entryList(QDir::Files);
    EXPECT_EQ(QSet<QString>(tNames.begin(), tNames.end()), (QSet<QString>{tApp, tPart, q("notes")}));
}

TEST_F(UpdateRunTest, LooksForSpaceBeforeTheFirstByte)
{
    mMachine.fileSystem().mFreeBytes = 6 * 1024 * 1024;
    package("maps").mFiles.insert(q("more.dat"), QByteArray(7 * 1024 * 1024, 'm'));
    publish();
    run(ResultNoSpace);
    EXPECT_TRUE(QDir(mMachine.path(q("state/downloads"))).isEmpty());
    EXPECT_EQ(mMachine.log().size(), 0);
    mMachine.fileSystem().mFreeBytes = -1;
    EXPECT_EQ(mMachine.run().mCode, ResultSuccess);
}

TEST_F(UpdateRunTest, RunsOnceAtATimeAndEndsWithItsObject)
{
    EXPECT_FALSE(mMachine.updater().isRunning());
    EXPECT_TRUE(mMachine.updater().start(mMachine.request()));
    EXPECT_FALSE(mMachine.updater().start(mMachine.request()));
    EXPECT_TRUE(mMachine.updater().isRunning());
    mMachine.restart();
    EXPECT_FALSE(mMachine.updater().isRunning());
    EXPECT_EQ(mMachine.run().mCode, ResultSuccess);
    expectInstalled();
}
