// Interruptions of an update: an abort, a failing disk, a kill, a power cut, and running applications.

#include "Child.h"
#include "PowerCut.h"
#include "UpdateFixture.h"

#include "os/AbortFlag.h"
#include "update/Reporter.h"
#include "update/Run.h"

#include <QtCore/QProcess>

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>

#include <cstring>
#include <list>

using namespace tarn;
using namespace tarn::vkservice;
using namespace tarn::vkservice::update;
using namespace tarn::vkcore;

namespace {

class InterruptionTest : public UpdateFixture
{
protected:
    // A new version of all packages, recognizable by their contents.
    void publishNext()
    {
        ++mNumber;
        for (TestPackage& tPackage : mPackages) {
            mRepository.remove(tPackage.mName);
            tPackage.mVersion = q("%1.0").arg(mNumber);
            for (auto tFile = tPackage.mFiles.begin(); tFile != tPackage.mFiles.end(); ++tFile) {
                if (tFile.key() != q("same")) {
                    *tFile =
                        tFile->leftJustified(4).replace(0, 4, QByteArray::number(mNumber).rightJustified(4));
                }
            }
        }
        publish();
    }

    static FileMap filesBelow(const FileMap& pFiles, const QStringList& pPackages)
    {
        FileMap tFiles;
        for (auto tIt = pFiles.begin(); tIt != pFiles.end(); ++tIt) {
            if (pPackages.contains(tIt.key().section(u'/', 0, 0))) {
                tFiles.insert(tIt.key(), tIt.value());
            }
        }
        return tFiles;
    }

    // After any interruption of a run that began with pBefore installed: the state is old or new.
    void expectOldOrNewAndRepair(const FileMap& pBefore)
    {
        const FileMap tFiles = mMachine.currentFiles();
        for (const QStringList& tSet : {QStringList{q("app"), q("lib")}, QStringList{q("maps")}}) {
            const FileMap tNow = filesBelow(tFiles, tSet);
            EXPECT_TRUE(tNow == filesBelow(pBefore, tSet) || tNow == filesBelow(filesOf(mPackages), tSet));
        }
        run(ResultSuccess);
        expectInstalled();
        const QString tOk = q(" %1.0.0 ok").arg(mNumber);
        EXPECT_EQ(mMachine.log().filter(tOk).size(), mPackages.size());
    }

    int mNumber = 3;
};

struct Interruption
{
    const char* mName;
    enum class Kind
    {
        Error, // one operation fails with mErrno
        Abort,
        Kill,
        PowerCut,      // only what was synced is on the disk
        PowerCutBytes, // names are there too, but not the bytes of their files
    } mKind;
    int mErrno = 0;
    // With the folders of a version without markers, and a new data folder beside the old one.
    bool mBeforeMarkers = false;
    PackageRepository::Beside mBeside = PackageRepository::Beside::Nothing;
    int mStep = 1; // comes at the first operation, and then at every one that is so much later
};

using Kind = Interruption::Kind;
using Beside = PackageRepository::Beside;

class InterruptedRunTest : public InterruptionTest, public testing::WithParamInterface<Interruption>
{
protected:
    void forgetRoots(int pCount)
    {
        QFile::remove(mMachine.path(q("state/installation.json")));
        const QStringList tFolders = QDir(mMachine.path(QString())).entryList(QDir::Dirs);
        for (const QString& tFolder : tFolders) {
            QFile::remove(mMachine.path(tFolder + q("/.vk-root")));
        }
        mMachine.request().mDataDir = mMachine.path(q("data%1").arg(pCount));
    }

    // These three tell how far the run got.
    bool killAt(int pCount, const FileMap& pBefore)
    {
        const pid_t tChild = ::fork();
        if (tChild == 0) {
            FaultyFileSystem tFileSystem;
            tFileSystem.mObserver = [pCount](int pNumber, const QByteArray&) {
                if (pNumber == pCount) {
                    ::_exit(9);
                }
            };
            runOn(tFileSystem);
            ::_exit(0);
        }
        int tStatus = 0;
        ::waitpid(tChild, &tStatus, 0);
        expectOldOrNewAfterRestart(pBefore);
        return WEXITSTATUS(tStatus) != 0;
    }
    bool cutPowerAt(int pCount, PowerCut::Loses pLoses, const FileMap& pBefore)
    {
        PowerCut tPower(mMachine.path(QString()), pLoses);
        const bool tCame = tPower.during([this](os::FileSystem& pDisk) { runOn(pDisk); }, pCount);
        // What a finished run has installed stays installed.
        expectOldOrNewAfterRestart(tCame ? pBefore : filesOf(mPackages));
        return tCame;
    }
    void runOn(os::FileSystem& pFileSystem)
    {
        const os::AbortFlag tAbort;
        Reporter tReporter([](ServiceActivity) {}, [](int, const QString&, const QString&) {},
                           [](int, const QString&, const QString&) {});
        const RunRequest tRequest = mMachine.request();
        update::Run(tRequest, pFileSystem, os::realProcessList(), tReporter, tAbort).run();
    }
    void expectOldOrNewAfterRestart(const FileMap& pBefore)
    {
        const FileMap tFiles = mMachine.currentFiles();
        EXPECT_TRUE(tFiles == pBefore || tFiles == filesOf(mPackages));
        QString tError;
        EXPECT_TRUE(mMachine.restart(&tError)) << tError;
        EXPECT_EQ(text(mMachine.litter()), "");
    }
    bool abortAt(int pCount, const FileMap& pBefore)
    {
        mMachine.fileSystem().failAt(0, 0);
        mMachine.fileSystem().mObserver = [this, pCount](int pNumber, const QByteArray&) {
            if (pNumber == pCount) {
                mMachine.updater().abort();
            }
        };
        const ResultCode tCode = mMachine.run().mCode;
        mMachine.fileSystem().mObserver = nullptr;
        EXPECT_TRUE(tCode == ResultAborted || tCode == ResultSuccess) << tCode;
        EXPECT_EQ(mMachine.currentFiles(), tCode == ResultAborted ? pBefore : filesOf(mPackages));
        return mMachine.fileSystem().count() >= pCount;
    }
    bool failAt(int pCount)
    {
        mMachine.fileSystem().failAt(pCount, GetParam().mErrno);
        const RunResult tResult = mMachine.run();
        const bool tFailed = mMachine.fileSystem().hasFailed();
        if (tResult.mCode == ResultSuccess) {
            EXPECT_EQ(mMachine.currentFiles(), filesOf(mPackages));
        } else {
            EXPECT_GT(tResult.mText.size(), resultText(tResult.mCode).size());
        }
        mMachine.fileSystem().failAt(0, 0);
        return tFailed;
    }
};

} // namespace

TEST_P(InterruptedRunTest, LeavesOldOrNewWhereverItComes)
{
    if (GetParam().mBeside != Beside::Nothing) {
        mRepository.setBeside(GetParam().mBeside);
        mRepository.remove(q("app"));
        mRepository.remove(q("maps"));
        mPackages = {{q("lib"), q("1.0"), {{q("lib.so"), noise(30000, 1)}, {q("same"), noise(60000, 2)}}}};
        publish();
    }
    run(ResultSuccess);
    int tCount = 1;
    for (bool tCame = true; tCame && !HasFailure(); tCount += GetParam().mStep * momentStep()) {
        SCOPED_TRACE(tCount);
        const FileMap tBefore = mMachine.currentFiles();
        publishNext();
        if (GetParam().mBeforeMarkers) {
            forgetRoots(tCount);
        }
        const Kind tKind = GetParam().mKind;
        tCame = tKind == Kind::Kill            ? killAt(tCount, tBefore)
                : tKind == Kind::PowerCut      ? cutPowerAt(tCount, PowerCut::Loses::BytesAndNames, tBefore)
                : tKind == Kind::PowerCutBytes ? cutPowerAt(tCount, PowerCut::Loses::Bytes, tBefore)
                : tKind == Kind::Abort         ? abortAt(tCount, tBefore)
                                               : failAt(tCount);
        expectOldOrNewAndRepair(tBefore);
    }
    EXPECT_GT(tCount, 60);
}

INSTANTIATE_TEST_SUITE_P(
    All, InterruptedRunTest,
    testing::Values(Interruption{"FullDisk", Kind::Error, ENOSPC}, Interruption{"BadDisk", Kind::Error, EIO},
                    Interruption{"Abort", Kind::Abort}, Interruption{"Kill", Kind::Kill},
                    Interruption{"KillBeforeMarkers", Kind::Kill, 0, true},
                    Interruption{"PowerCut", Kind::PowerCut},
                    Interruption{"PowerCutWithoutBytes", Kind::PowerCutBytes},
                    Interruption{"FullDiskInRanges", Kind::Error, ENOSPC, false, Beside::Index},
                    Interruption{"FullDiskInDelta", Kind::Error, ENOSPC, false, Beside::IndexAndDelta},
                    Interruption{"BadDiskInDelta", Kind::Error, EIO, false, Beside::IndexAndDelta},
                    Interruption{"AbortInRanges", Kind::Abort, 0, false, Beside::Index},
                    Interruption{"KillInRanges", Kind::Kill, 0, false, Beside::Index},
                    Interruption{"KillInDelta", Kind::Kill, 0, false, Beside::IndexAndDelta},
                    Interruption{"PowerCutInDelta", Kind::PowerCut, 0, false, Beside::IndexAndDelta, 2}),
    [](const auto& pInfo) { return std::string(pInfo.param.mName); });

namespace {

// A package with a program that runs until it is killed.
class RunningAppTest : public InterruptionTest
{
protected:
    RunningAppTest()
    {
        mPackages = {{q("app"), q("1.0"), {{q("bin/app"), readFile(q("/bin/sleep"))}}}};
        mPackages.first().mExecutables = {q("bin/app")};
        mRepository.remove(q("lib"));
        mRepository.remove(q("maps"));
        publish();
        mMachine.run();
        mProcess.start(mMachine.installed(q("app/bin/app")), {q("600")});
        mProcess.waitForStarted();
        mPackages.first().mFiles.insert(q("new"), "2");
        mPackages.first().mVersion = q("2.0");
        publish();
    }
    ~RunningAppTest() override
    {
        mProcess.kill();
        mProcess.waitForFinished();
    }

    QProcess mProcess;
};

} // namespace

// Even if its file was deleted, as after a replacement while it ran.
TEST_F(RunningAppTest, NeedsIntervention)
{
    QFile::remove(QFileInfo(mMachine.installed(q("app/bin/app"))).canonicalFilePath());
    mMachine.request().mWaitForAppsSeconds = 0;
    const RunResult tResult = run(ResultManualIntervention);
    EXPECT_TRUE(tResult.mText.contains(q("Title of app"))) << tResult.mText;
    EXPECT_EQ(text(mMachine.packages()), "app 1.0.0");
    EXPECT_EQ(text(mMachine.litter()), "");
    mProcess.kill();
    mProcess.waitForFinished();
    run(ResultSuccess);
}

TEST_F(InterruptionTest, WaitsForScriptsHoweverTheyWereStarted)
{
    package("app").mExecutables = {q("bin/app")};
    package("app").mFiles[q("bin/app")] = "#!/usr/bin/python3\nprint('up', flush=True)\ninput()\n";
    mRepository.remove(q("app"));
    publish();
    run(ResultSuccess);
    publishNext();
    mMachine.request().mWaitForAppsSeconds = 0;
    const QString tFolder = mMachine.installed(q("app"));
    for (const QString& tCommand : {tFolder + q("/bin/app"), q("cd ") + tFolder + q(" && exec bin/app"),
                                    q("cd / && exec python3 -u $(readlink -f ") + tFolder + q("/bin/app)")}) {
        QProcess tProcess;
        tProcess.start(q("sh"), {q("-c"), tCommand});
        ASSERT_TRUE(tProcess.waitForReadyRead());
        const RunResult tResult = run(ResultManualIntervention);
        EXPECT_TRUE(tResult.mText.contains(q("Title of app"))) << tResult.mText;
        tProcess.closeWriteChannel();
        tProcess.waitForFinished();
    }
    run(ResultSuccess);
}

TEST_F(InterruptionTest, WhatAProcessUsesIsRemovedByALaterRun)
{
    run(ResultSuccess);
    const QString tOld = QFileInfo(mMachine.installed(q("app"))).canonicalFilePath();
    {
        const Child tUser([&tOld] { return ::chdir(QFile::encodeName(tOld).constData()) == 0; });
        for (int tRound = 0; tRound < 3; ++tRound) {
            publishNext();
            run(ResultSuccess);
        }
        EXPECT_TRUE(mMachine.restart());
        EXPECT_TRUE(QFileInfo::exists(tOld + q("/bin/app")));
        EXPECT_EQ(mMachine.mMessages.filter(q("in use")).filter(tOld).size(), 1) << text(mMachine.mMessages);
    }
    run(ResultSuccess);
    EXPECT_FALSE(QFileInfo::exists(tOld));
}

TEST(ProcessListTest, FindsFoldersInUseInWhateverWay)
{
    const QTemporaryDir tDir;
    const auto tPath = [&tDir](const char* pBelow) { return QFile::encodeName(tDir.filePath(q(pBelow))); };
    const auto tOpen = [&tPath](const char* pBelow) { return ::open(tPath(pBelow).constData(), O_RDONLY); };
    const std::pair<const char*, std::function<bool()>> tWays[] = {
        {"nothing", [] { return true; }},
        {"standing", [&] { return ::chdir(tPath("standing/bin").constData()) == 0; }},
        {"root", [&] { return ::unshare(CLONE_NEWUSER) == 0 && ::chroot(tPath("root").constData()) == 0; }},
        {"open", [&] { return tOpen("open/bin/file") >= 0; }},
        {"mapped",
         [&] {
             const int tFd = tOpen("mapped/bin/file");
             return ::mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE, tFd, 0) != MAP_FAILED && ::close(tFd) == 0;
         }},
        {"mount",
         [&] {
             return ::unshare(CLONE_NEWUSER | CLONE_NEWNS) == 0 &&
                    ::mount(tPath("mount").constData(), "/mnt", nullptr, MS_BIND, nullptr) == 0 &&
                    ::chdir("/mnt/bin") == 0;
         }},
        {"run", [] { return true; }},
        {"argument", [] { return true; }},
    };
    QStringList tFolders;
    for (const auto& [tWay, tBody] : tWays) {
        tFolders.append(tDir.filePath(q(tWay)));
        writeFile(tFolders.last() + q("/bin/file"), readFile(q("/bin/sleep")));
    }
    QFile::setPermissions(tDir.filePath(q("run/bin/file")), QFile::ReadOwner | QFile::ExeOwner);
    EXPECT_EQ(text(os::realProcessList().inUse(tFolders).valueOr({q("a failure")})), "");

    std::list<Child> tChildren;
    QStringList tExpected;
    for (const auto& [tWay, tBody] : tWays) {
        tChildren.emplace_back(tBody);
        const bool tIsMissing =
            !tChildren.back().isReady() && (q(tWay) == q("root") || q(tWay) == q("mount"));
        if (!tIsMissing && q(tWay) != q("nothing")) {
            tExpected.append(tDir.filePath(q(tWay)));
        }
    }
    QProcess tProgram;
    tProgram.start(tDir.filePath(q("run/bin/file")), {q("60")});
    ASSERT_TRUE(tProgram.waitForStarted());
    QProcess tReader;
    tReader.start(q("cat"), {q("-"), tDir.filePath(q("argument/bin/file"))});
    ASSERT_TRUE(tReader.waitForStarted());
    QStringList tUsed = os::realProcessList().inUse(tFolders).valueOr({});
    tUsed.sort();
    tExpected.sort();
    EXPECT_EQ(text(tUsed), text(tExpected));
    for (QProcess* tProcess : {&tProgram, &tReader}) {
        tProcess->kill();
        tProcess->waitForFinished();
    }
    tChildren.clear();
    EXPECT_EQ(text(os::realProcessList().inUse(tFolders).valueOr({q("a failure")})), "");
}
