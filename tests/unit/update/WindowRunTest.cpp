// Runs that may switch only inside of a window, and what survives between two of them.

#include "UpdateFixture.h"

#include "os/ProcessList.h"

#include <QtCore/QDirIterator>

using namespace tarn;
using namespace tarn::vkservice;
using namespace tarn::vkservice::update;

namespace {

// An application that never ends.
class BusyProcesses : public os::ProcessList
{
public:
    Result<QList<os::Process>> running(const os::ProgramSearch&) override
    {
        if (mIsBlind) {
            return Failure{Failure::Kind::Io, q("nobody sees it")};
        }
        return mIsOn ? QList{os::Process{1, q("app"), mExecutable}} : QList<os::Process>();
    }
    Result<QStringList> inUse(const QStringList&) override
    {
        return mIsBlind ? Result<QStringList>(Failure{Failure::Kind::Io, q("nobody sees it")})
                        : QStringList();
    }
    int openProcess(pid_t) override
    {
        errno = EPERM;
        return -1;
    }

    bool mIsOn = false;
    bool mIsBlind = false;
    QString mExecutable;
};

class WindowRunTest : public UpdateFixture
{
protected:
    WindowRunTest()
    {
        mRepository.setBeside(PackageRepository::Beside::Index);
        offerNext("1.5");
        close();
    }

    void offerNext(const char* pVersion)
    {
        for (TestPackage& tPackage : mPackages) {
            mRepository.remove(tPackage.mName);
            tPackage.mVersion = q(pVersion);
            tPackage.mFiles.insert(q("version"), pVersion);
        }
        publish();
    }
    // A window from and until so many seconds from now.
    void setWindow(int pFrom, int pUntil)
    {
        const QDateTime tNow = QDateTime::currentDateTime();
        mMachine.request().mOpeningAt = [tOpening = Opening{tNow.addSecs(pFrom), tNow.addSecs(pUntil)}](
                                            const QDateTime&) { return tOpening; };
    }
    void open() { setWindow(-60, 3600); }
    void close() { setWindow(3600, 7200); }
    // With the mode of a staged file.
    void put(const QString& pFile, const QByteArray& pBytes)
    {
        QFile::remove(pFile);
        writeFile(pFile, pBytes);
        QFile::setPermissions(pFile, QFile::ReadOwner | QFile::ReadGroup | QFile::ReadOther);
    }
    // Only what a machine has not downloaded yet can be missing.
    void removeArchives()
    {
        QDir tTargets(mRepository.path(q("targets")));
        for (const QString& tName : tTargets.entryList({q("*.zst"), q("*.delta")}, QDir::Files)) {
            tTargets.remove(tName);
        }
    }
    QString staged(const char* pFile) const
    {
        QDirIterator tFiles(mMachine.path(q("install/.staging")), {q(pFile)}, QDir::Files | QDir::Hidden,
                            QDirIterator::Subdirectories);
        return tFiles.hasNext() ? tFiles.next() : QString();
    }
};

} // namespace

TEST_F(WindowRunTest, PreparesThenInstallsInTheWindowAfterARestart)
{
    const RunResult tHeld = run(ResultSuccess);
    EXPECT_TRUE(tHeld.mInstallFrom.isValid());
    EXPECT_EQ(tHeld.mInstalledCount, 0);
    EXPECT_TRUE(tHeld.mText.startsWith(q("3 packages are prepared and will be installed from 20")))
        << tHeld.mText;
    EXPECT_TRUE(mMachine.packages().isEmpty());
    EXPECT_TRUE(mMachine.log().isEmpty());

    EXPECT_TRUE(mMachine.restart());
    setWindow(-3600, SwitchTime::sLastSeconds - 1);
    EXPECT_TRUE(run(ResultSuccess).mInstallFrom.isValid())
        << "the same timestamp, and too late in the window";
    removeArchives();
    QDir(mMachine.path(q("state/downloads"))).removeRecursively();
    open();
    EXPECT_EQ(run(ResultSuccess).mText, q("3 packages were updated."));
    expectInstalled();
    EXPECT_FALSE(QFile::exists(mMachine.path(q("install/.prepared.json"))));
    EXPECT_EQ(run(ResultSuccess).mText, q("All packages are up to date."));
}

TEST_F(WindowRunTest, WhatWasPreparedIsProvenAgain)
{
    const struct
    {
        const char* mWhat;
        std::function<void(const QString&)> mSpoil; // gets a staged file
    } tCases[] = {
        {"other bytes", [this](const QString& pFile) { put(pFile, "bad"); }},
        {"missing", [](const QString& pFile) { QFile::remove(pFile); }},
        {"one more", [this](const QString& pFile) { put(pFile + q("2"), "bad"); }},
        {"a writable file",
         [](const QString& pFile) { QFile::setPermissions(pFile, QFile::ReadOwner | QFile::WriteOwner); }},
        {"no folder",
         [this](const QString&) {
             QDir().rename(mMachine.path(q("install/.staging")), mMachine.path(q("gone")));
         }},
        {"a damaged record",
         [this](const QString&) { writeFile(mMachine.path(q("install/.prepared.json")), "{"); }},
    };
    int tNumber = 2;
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        offerNext(QByteArray::number(tNumber++) + ".0");
        close();
        run(ResultSuccess);
        const QString tFile = staged("version");
        ASSERT_FALSE(tFile.isEmpty());
        tCase.mSpoil(tFile);
        open();
        EXPECT_EQ(run(ResultSuccess).mInstalledCount, 3);
        expectInstalled();
    }
}

TEST_F(WindowRunTest, AKillAtAnyPointLosesNothing)
{
    constexpr int sStep = 23; // operations
    for (int tAt = 1, tIsOver = 0; tIsOver == 0; tAt += sStep) {
        SCOPED_TRACE(tAt);
        offerNext(QByteArray::number(tAt + 1) + ".0");
        mMachine.fileSystem().mForGood = true;
        mMachine.fileSystem().failAt(tAt, EIO);
        close();
        mMachine.run();
        open();
        mMachine.run();
        tIsOver = mMachine.fileSystem().hasFailed() ? 0 : 1;
        mMachine.fileSystem().mForGood = false;
        mMachine.fileSystem().failAt(0, 0);
        EXPECT_TRUE(mMachine.restart());
        run(ResultSuccess);
        expectInstalled();
    }
}

TEST_F(WindowRunTest, ANewerVersionReplacesWhatWasPrepared)
{
    run(ResultSuccess);
    offerNext("1.6");
    run(ResultSuccess);
    EXPECT_EQ(QDir(mMachine.path(q("install/.staging"))).entryList(QDir::Dirs | QDir::NoDotAndDotDot).size(),
              3);
    open();
    run(ResultSuccess);
    expectInstalled();
}

TEST_F(WindowRunTest, WithoutAnIndexTheDownloadsSurvive)
{
    mRepository.setBeside(PackageRepository::Beside::Nothing);
    offerNext("1.7");
    run(ResultSuccess);
    EXPECT_TRUE(staged("version").isEmpty());
    removeArchives();
    open();
    run(ResultSuccess);
    expectInstalled();
}

TEST_F(WindowRunTest, TheMachineIsHeldWhileTheRunSwitches)
{
    QStringList tSeen;
    mMachine.request().mHoldMachine = [&] {
        tSeen.append(q("begin %1").arg(mMachine.packages().size()));
        return std::shared_ptr<const void>(
            &tSeen, [&](const void*) { tSeen.append(q("end %1").arg(mMachine.packages().size())); });
    };
    run(ResultSuccess);
    EXPECT_EQ(tSeen, QStringList());
    open();
    run(ResultSuccess);
    EXPECT_EQ(tSeen, (QStringList{q("begin 0"), q("end 3")}));
}

TEST(WindowRun, TheWaitForApplicationsEndsWithTheWindow)
{
    BusyProcesses tProcesses;
    PackageRepository tRepository;
    TestMachine tMachine(tRepository.root(), tProcesses);
    TestPackage tApp{q("app"), q("1.0"), {{q("bin/app"), "one"}}};
    tApp.mExecutables = {q("bin/app")};
    tRepository.add(tApp);
    tRepository.publish();
    tMachine.setServers({tRepository.uri()});
    ASSERT_EQ(tMachine.run().mInstalledCount, 1);
    tApp.mVersion = q("2.0");
    tRepository.add(tApp);
    tRepository.publish();
    tProcesses.mExecutable = QFileInfo(tMachine.installed(q("app/bin/app"))).canonicalFilePath();
    tProcesses.mIsOn = true;
    const QDateTime tUntil = QDateTime::currentDateTime().addSecs(SwitchTime::sLastSeconds + 3);
    tMachine.request().mOpeningAt = [tUntil](const QDateTime& pNow) {
        return pNow < tUntil ? Opening{tUntil.addDays(-1), tUntil}
                             : Opening{tUntil.addDays(6), tUntil.addDays(7)};
    };
    const RunResult tResult = tMachine.run();
    EXPECT_EQ(tResult.mCode, ResultSuccess) << tResult.mText;
    EXPECT_EQ(tResult.mInstallFrom, tUntil.addDays(6));
    EXPECT_EQ(tMachine.packages(), QStringList{q("app 1.0.0")});
}

// Updates go on and say so, but no old package is removed whose use is not known.
TEST_F(WindowRunTest, NothingIsRemovedWhileNobodySeesWhatIsInUse)
{
    BusyProcesses tProcesses;
    TestMachine tMachine(mRepository.root(), tProcesses);
    tMachine.setServers({mRepository.uri()});
    tMachine.request().mKeepGenerations = 1;
    tProcesses.mIsBlind = true;
    QString tFirst;
    for (const char* tVersion : {"2.0", "3.0", "4.0"}) {
        offerNext(tVersion);
        ASSERT_EQ(tMachine.run().mCode, ResultSuccess) << text(tMachine.mMessages);
        const QString tFolder = QFileInfo(tMachine.installed(q("app"))).canonicalFilePath();
        tFirst = tFirst.isEmpty() ? tFolder : tFirst;
    }
    EXPECT_TRUE(QFileInfo(tFirst).isDir());
    EXPECT_TRUE(text(tMachine.mMessages).find("nobody sees it") != std::string::npos)
        << text(tMachine.mMessages);
    tProcesses.mIsBlind = false;
    EXPECT_TRUE(tMachine.restart());
    EXPECT_FALSE(QFileInfo::exists(tFirst));
}
