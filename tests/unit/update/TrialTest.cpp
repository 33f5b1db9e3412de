// A new generation proves itself, or goes back by itself.

#include "Files.h"
#include "PowerCut.h"
#include "UpdateFixture.h"

#include "os/AbortFlag.h"
#include "packages/Refusals.h"
#include "packages/TrialRecord.h"
#include "update/Reporter.h"
#include "update/Run.h"

#include <sys/wait.h>

using namespace tarn;
using namespace tarn::vkservice;
using namespace tarn::vkservice::update;
using namespace tarn::vkcore;
using packages::TrialRecord;

namespace {

os::CheckOutcome failed(const os::CheckProgram&)
{
    return {.mPassed = false,
            .mIsAborted = false,
            .mReason = q("ended with status 3"),
            .mOutput = "why\n",
            .mIsMachinesFault = false};
}

class TrialTest : public UpdateFixture
{
protected:
    TrialTest()
    {
        package("app").mCheck = q("bin/app");
        publishVersion(1);
        run(ResultSuccess);
        mOld = mMachine.currentFiles();
    }

    void publishVersion(int pNumber)
    {
        for (TestPackage& tPackage : mPackages) {
            mRepository.remove(tPackage.mName);
            tPackage.mVersion = q("%1.0").arg(pNumber);
            tPackage.mFiles[q("news")] = QByteArray::number(pNumber) + tPackage.mName.toUtf8();
        }
        publish();
    }
    QString refused() const
    {
        const auto tRefusals =
            packages::Refusals::load(os::realFileSystem(), mMachine.path(q("state"))).valueOr({});
        QStringList tNames;
        for (const packages::Refusal& tRefusal : tRefusals.all()) {
            tNames.append(tRefusal.mName + u' ' + tRefusal.mVersion);
        }
        tNames.sort();
        return tNames.join(u',');
    }
    TrialRecord trial() const
    {
        return TrialRecord::load(os::realFileSystem(), mMachine.path(q("state"))).valueOr({});
    }
    // The generation in use is an earlier one, or has not been refused.
    void expectNothingRefusedInUse()
    {
        const auto tRefusals =
            packages::Refusals::load(os::realFileSystem(), mMachine.path(q("state"))).valueOr({});
        for (const auto& tPackage : mMachine.manifest().mPackages) {
            EXPECT_FALSE(tRefusals.has(tPackage.mHash)) << tPackage.mFolder.toStdString();
        }
    }

    static FileMap ofApp(FileMap pFiles)
    {
        pFiles.removeIf([](const auto& pFile) { return pFile.key().startsWith(q("maps/")); });
        return pFiles;
    }

    FileMap mOld;
};

} // namespace

TEST_F(TrialTest, GoesBackAndRefusesWhatBelongsTogether)
{
    EXPECT_EQ(trial().mGeneration, 0);
    publishVersion(2);
    mMachine.checks().mOnRun = failed;
    const RunResult tResult = run(ResultCheckFailed);
    EXPECT_TRUE(tResult.mText.endsWith(q("app 2.0.0.0: bin/app ended with status 3."))) << tResult.mText;
    EXPECT_EQ(mMachine.currentFiles(), mOld);
    EXPECT_EQ(text(mMachine.litter()), "");
    EXPECT_EQ(refused(), q("app 2.0.0.0,lib 2.0.0.0")) << "not maps, which stand alone";
    EXPECT_EQ(text(mMachine.log().filter(q(" 2.0.0"))),
              "app 2.0.0 error\nlib 2.0.0 error\nmaps 2.0.0 warning");
    EXPECT_EQ(mMachine.mMessages.filter(q("ended with status 3")).size(), 1) << text(mMachine.mMessages);
    EXPECT_EQ(trial().mGeneration, 0);
    ASSERT_EQ(tResult.mRefused.size(), 2) << "what a client sees at once";
    EXPECT_EQ(tResult.mRefused.first().mName, q("app"));
    EXPECT_TRUE(tResult.mLeftOut) << "and what is left out for other reasons";

    // The others come again, the refused ones do not, however often.
    for (int i = 0; i < 2; ++i) {
        const RunResult tNext = run(ResultSuccess);
        EXPECT_TRUE(tNext.mText.endsWith(q(" 2 packages are refused."))) << tNext.mText;
        EXPECT_EQ(text(mMachine.packages()), "app 1.0.0\nlib 1.0.0\nmaps 2.0.0");
    }
    // Other bytes are another matter.
    mMachine.checks().mOnRun = nullptr;
    publishVersion(3);
    run(ResultSuccess);
    expectInstalled();
}

TEST_F(TrialTest, AFailedCheckOfTheAdministratorRefusesAll)
{
    package("app").mCheck.clear();
    publishVersion(2);
    mMachine.checks().mPrograms = {q("/etc/vk/check.d/one")};
    QByteArrayList tVariables;
    mMachine.checks().mOnRun = [&](const os::CheckProgram& pProgram) {
        tVariables = pProgram.mVariables;
        EXPECT_EQ(mMachine.generation(), 2) << "behind the switch";
        EXPECT_EQ(trial().mAttempts, 1);
        return failed(pProgram);
    };
    run(ResultCheckFailed);
    EXPECT_TRUE(tVariables.contains("VK_PACKAGES=app lib maps"));
    EXPECT_EQ(refused(), q("app 2.0.0.0,lib 2.0.0.0,maps 2.0.0.0"));
    EXPECT_EQ(mMachine.currentFiles(), mOld);
}

TEST_F(TrialTest, TheFirstGenerationGoesBackToNothing)
{
    TestMachine tMachine(mRepository.root());
    tMachine.setServers({mRepository.uri()});
    tMachine.checks().mOnRun = failed;
    EXPECT_EQ(tMachine.run().mCode, ResultCheckFailed);
    EXPECT_FALSE(QFileInfo::exists(tMachine.installed(QString())));
    EXPECT_EQ(tMachine.run().mCode, ResultSuccess);
    EXPECT_EQ(text(tMachine.packages()), "maps 1.0.0");
}

TEST_F(TrialTest, AnAbortGoesBackAndRefusesNothing)
{
    publishVersion(2);
    mMachine.checks().mOnRun = [](const os::CheckProgram&) {
        return os::CheckOutcome{
            .mPassed = false, .mIsAborted = true, .mReason = {}, .mOutput = {}, .mIsMachinesFault = false};
    };
    run(ResultAborted);
    EXPECT_EQ(mMachine.currentFiles(), mOld);
    EXPECT_EQ(refused(), QString());
    mMachine.checks().mOnRun = nullptr;
    run(ResultSuccess);
    expectInstalled();
}

TEST_F(TrialTest, AShortageOfTheMachineGoesBackAndRefusesNothing)
{
    publishVersion(2);
    mMachine.checks().mOnRun = [](const os::CheckProgram&) {
        return os::CheckOutcome{.mPassed = false,
                                .mIsAborted = false,
                                .mReason = q("can't be started: No space left on device"),
                                .mOutput = {},
                                .mIsMachinesFault = true};
    };
    EXPECT_TRUE(run(ResultCheckFailed).mText.contains(q("No space left")))
        << "it does not count as a success";
    EXPECT_EQ(mMachine.currentFiles(), mOld);
    EXPECT_EQ(refused(), QString());
    mMachine.checks().mOnRun = nullptr;
    run(ResultSuccess);
    expectInstalled();
}

// Each kill comes in the middle of the check.
TEST_F(TrialTest, ChecksThreeTimesAtMostAndThenGoesBack)
{
    publishVersion(2);
    const auto tKilledRun = [this] {
        const pid_t tChild = ::fork();
        if (tChild == 0) {
            mMachine.checks().mOnRun = [](const os::CheckProgram&) -> os::CheckOutcome { ::_exit(9); };
            const os::AbortFlag tAbort;
            Reporter tReporter([](ServiceActivity) {}, [](int, const QString&, const QString&) {},
                               [](int, const QString&, const QString&) {});
            update::Run(mMachine.request(), os::realFileSystem(), os::realProcessList(), tReporter, tAbort,
                        mMachine.checks())
                .run();
            ::_exit(0);
        }
        int tStatus = 0;
        ::waitpid(tChild, &tStatus, 0);
        return WEXITSTATUS(tStatus);
    };
    for (int tAttempt = 1; tAttempt <= TrialRecord::sMaxAttempts; ++tAttempt) {
        EXPECT_EQ(tKilledRun(), 9) << tAttempt;
        EXPECT_EQ(trial().mAttempts, tAttempt);
        EXPECT_EQ(mMachine.currentFiles(), filesOf(mPackages));
        if (tAttempt < TrialRecord::sMaxAttempts) {
            EXPECT_TRUE(mMachine.restart()) << "it leaves the decision to a run";
            EXPECT_TRUE(mMachine.updater().isOnTrial());
        }
    }
    mMachine.restart();
    EXPECT_EQ(mMachine.updater().wayBack().mKind, Failure::Kind::CheckFailed);
    EXPECT_EQ(mMachine.currentFiles(), mOld);
    EXPECT_EQ(refused(), q("app 2.0.0.0,lib 2.0.0.0,maps 2.0.0.0"));
    EXPECT_EQ(mMachine.log().filter(q(" error")).size(), 3);
    EXPECT_EQ(text(mMachine.litter()), "");
}

TEST_F(TrialTest, AnAdministratorGoesBackAndForth)
{
    mMachine.request().mKeepGenerations = 2;
    for (const int tVersion : {2, 3, 4}) {
        publishVersion(tVersion);
        run(ResultSuccess);
    }
    const FileMap tNew = mMachine.currentFiles();
    EXPECT_TRUE(mMachine.updater().rollBack(mMachine.request(), 1)) << "it is not kept";
    EXPECT_TRUE(mMachine.updater().rollBack(mMachine.request(), 4)) << "it is the current one";
    EXPECT_EQ(mMachine.currentFiles(), tNew);
    mMachine.mMessages.clear();
    const Failure tFailure = mMachine.updater().rollBack(mMachine.request(), 2);
    EXPECT_FALSE(tFailure) << tFailure.mText;
    EXPECT_EQ(mMachine.updater().refused().size(), 3);
    QCoreApplication::processEvents();
    EXPECT_EQ(
        text(mMachine.mMessages),
        "The packages of the generation 2 are in use again.|An administrator went back to the generation 2.");
    EXPECT_EQ(text(mMachine.packages()), "app 2.0.0\nlib 2.0.0\nmaps 2.0.0");
    expectNothingRefusedInUse();
    EXPECT_EQ(trial().mGeneration, 0);
    EXPECT_FALSE(QFile::exists(mMachine.path(q("install/generations/4/.manifest.json")))) << "it may count";
    run(ResultSuccess);
    EXPECT_EQ(text(mMachine.packages()), "app 2.0.0\nlib 2.0.0\nmaps 2.0.0") << "it does not come back";
    QFile::remove(mMachine.path(q("state/refused.json")));
    run(ResultSuccess);
    expectInstalled();
    // A kill on the way back: the next service goes on with it, and no check has failed.
    const TrialRecord tCut{.mGeneration = mMachine.manifest().mGeneration,
                           .mRun = mMachine.manifest().mRunId,
                           .mBack = 2,
                           .mAttempts = TrialRecord::sMaxAttempts,
                           .mVerdict = q("By hand")};
    EXPECT_FALSE(tCut.store(os::realFileSystem(), mMachine.path(q("state"))));
    mMachine.restart();
    EXPECT_FALSE(mMachine.updater().wayBack());
    EXPECT_EQ(text(mMachine.packages()), "app 2.0.0\nlib 2.0.0\nmaps 2.0.0");
}

TEST_F(TrialTest, ADamagedListOfRefusalsIsSetAsideAndStopsNothing)
{
    const QString tList = mMachine.path(q("state/refused.json"));
    const QByteArray tLater = R"({"format": 2, "refused": []})";
    int tVersion = 1;
    for (const QByteArray& tBytes :
         {QByteArray(), QByteArray("{\"format\": 1"), tLater, QByteArray(17 << 20, ' ')}) {
        for (const bool tIsRun : {true, false}) {
            SCOPED_TRACE(testing::Message()
                         << tBytes.first(std::min<qsizetype>(30, tBytes.size())).constData() << tIsRun);
            publishVersion(++tVersion);
            run(ResultSuccess);
            writeFile(tList, tBytes);
            mMachine.mMessages.clear();
            if (tIsRun) {
                run(ResultSuccess);
            } else {
                EXPECT_FALSE(mMachine.updater().rollBack(mMachine.request(), mMachine.manifest().mPrevious));
                QCoreApplication::processEvents();
                EXPECT_TRUE(refused().contains(q("app %1.0.0.0").arg(tVersion)));
            }
            EXPECT_EQ(mMachine.mMessages.filter(q("It was renamed to ") + tList + q(".damaged")).size(), 1)
                << text(mMachine.mMessages);
            EXPECT_EQ(readFile(tList + q(".damaged")), tBytes);
        }
    }
}

// A kill behind the switch back: the next service still tells why.
TEST_F(TrialTest, WhatIsLeftOfAWayBackIsToldAtTheNextStart)
{
    for (const QString& tVerdict : {QString(), q("By hand")}) {
        QFile::remove(mMachine.path(q("state/refused.json")));
        publishVersion(tVerdict.isNull() ? 2 : 3);
        mMachine.checks().mOnRun = nullptr;
        run(ResultSuccess);
        const packages::Manifest tNew = mMachine.manifest();
        TrialRecord tCut{.mGeneration = tNew.mGeneration,
                         .mRun = tNew.mRunId,
                         .mBack = tNew.mPrevious,
                         .mAttempts = 1,
                         .mVerdict = {}};
        ASSERT_FALSE(tCut.store(os::realFileSystem(), mMachine.path(q("state"))));
        mMachine.restart();
        EXPECT_TRUE(mMachine.updater().isOnTrial());
        ASSERT_FALSE(mMachine.updater().rollBack(mMachine.request(), tNew.mPrevious));
        EXPECT_FALSE(mMachine.updater().isOnTrial()) << "nothing is left to check";

        const QString tFolder = mMachine.path(q("install/generations/%1").arg(tNew.mGeneration));
        QDir().mkpath(tFolder);
        QFile tManifest(tFolder + q("/.manifest.json"));
        ASSERT_TRUE(tManifest.open(QIODevice::WriteOnly) && tManifest.write(tNew.toBytes()) > 0);
        tManifest.close();
        tCut.mVerdict = tVerdict;
        ASSERT_FALSE(tCut.store(os::realFileSystem(), mMachine.path(q("state"))));
        mMachine.restart();
        EXPECT_EQ(mMachine.updater().wayBack().mKind == Failure::Kind::CheckFailed, tVerdict.isNull());
        EXPECT_EQ(mMachine.updater().refused().size(), 3);
        EXPECT_EQ(trial().mGeneration, 0);
    }
}

namespace {

struct Cut
{
    const char* mName;
    enum class Kind
    {
        Error,
        Kill,
        Power,
        PowerBytes
    } mKind;
    int mErrno = 0;
};

class CutTrialTest : public TrialTest, public testing::WithParamInterface<Cut>
{
protected:
    // The number of the first operation of a trial; those before it are the same without one.
    int firstOfTrial()
    {
        int tFirst = 1;
        mMachine.fileSystem().failAt(0, 0);
        mMachine.fileSystem().mObserver = [&tFirst](int pNumber, const QByteArray& pWhat) {
            if (tFirst == 1 && pWhat.contains("trial.json.new")) {
                tFirst = pNumber;
            }
        };
        publishVersion(2);
        mMachine.run();
        mMachine.fileSystem().mObserver = nullptr;
        return tFirst;
    }
    // Runs with checks that fail; true if the cut came.
    bool runAndCut(int pCount)
    {
        const auto tRunOn = [this](os::FileSystem& pDisk) {
            const os::AbortFlag tAbort;
            Reporter tReporter([](ServiceActivity) {}, [](int, const QString&, const QString&) {},
                               [](int, const QString&, const QString&) {});
            update::Run(mMachine.request(), pDisk, os::realProcessList(), tReporter, tAbort,
                        mMachine.checks())
                .run();
        };
        if (GetParam().mKind == Cut::Kind::Error) {
            mMachine.fileSystem().failAt(pCount, GetParam().mErrno);
            mMachine.run();
            const bool tCame = mMachine.fileSystem().hasFailed();
            mWhat = mMachine.fileSystem().failed();
            mMachine.fileSystem().failAt(0, 0);
            return tCame;
        }
        if (GetParam().mKind == Cut::Kind::Kill) {
            const pid_t tChild = ::fork();
            if (tChild == 0) {
                FaultyFileSystem tDisk;
                tDisk.mObserver = [pCount](int pNumber, const QByteArray&) {
                    if (pNumber == pCount) {
                        ::_exit(9);
                    }
                };
                tRunOn(tDisk);
                ::_exit(0);
            }
            int tStatus = 0;
            ::waitpid(tChild, &tStatus, 0);
            return WEXITSTATUS(tStatus) != 0;
        }
        PowerCut tPower(mMachine.path(QString()), GetParam().mKind == Cut::Kind::Power
                                                      ? PowerCut::Loses::BytesAndNames
                                                      : PowerCut::Loses::Bytes);
        return tPower.during(tRunOn, pCount);
    }

    QByteArray mWhat; // the operation that failed
};

} // namespace

// At each change of the disk of a run whose check fails: the machine has the old or the new generation,
// whole, and when it has settled, the old one.
TEST_P(CutTrialTest, EndsWithThePreviousPackages)
{
    mMachine.checks().mOnRun = failed;
    const int tFirst = firstOfTrial();
    mOld = mMachine.currentFiles();
    const bool tIsPower = GetParam().mKind == Cut::Kind::Power || GetParam().mKind == Cut::Kind::PowerBytes;
    int tCount = tIsPower ? 1 : tFirst;
    const int tBegin = tCount;
    for (bool tCame = true; tCame && !HasFailure(); tCount += momentStep()) {
        QFile::remove(mMachine.path(q("state/refused.json")));
        publishVersion(tCount + 2);
        tCame = runAndCut(tCount);
        SCOPED_TRACE(testing::Message() << tCount << ' ' << mWhat.constData());
        const FileMap tFiles = mMachine.currentFiles();
        EXPECT_TRUE(tFiles == mOld || tFiles == filesOf(mPackages));
        QString tError;
        mMachine.restart(&tError);
        if (!mMachine.updater().isOnTrial()) {
            expectNothingRefusedInUse();
        }
        // At most two runs: one that ends the trial, one that tries again what was not recorded.
        for (int i = 0; i < 2; ++i) {
            mMachine.run();
            expectNothingRefusedInUse();
        }
        EXPECT_EQ(ofApp(mMachine.currentFiles()), ofApp(mOld)) << "maps have no check";
        EXPECT_EQ(trial().mGeneration, 0);
        EXPECT_TRUE(mMachine.log().filter(q("app %1.0.0 ok").arg(tCount + 2)).isEmpty());
        EXPECT_FALSE(mMachine.log().filter(q("app %1.0.0 error").arg(tCount + 2)).isEmpty());
        mOld = mMachine.currentFiles();
    }
    EXPECT_GT(tCount, tBegin + 20);
}
INSTANTIATE_TEST_SUITE_P(All, CutTrialTest,
                         testing::Values(Cut{"FullDisk", Cut::Kind::Error, ENOSPC},
                                         Cut{"BadDisk", Cut::Kind::Error, EIO}, Cut{"Kill", Cut::Kind::Kill},
                                         Cut{"PowerCut", Cut::Kind::Power},
                                         Cut{"PowerCutWithoutBytes", Cut::Kind::PowerBytes}),
                         [](const auto& pInfo) { return std::string(pInfo.param.mName); });
