#include "tuf/Hashes.h"
#include "UpdateFixture.h"

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

    const QString tOld = QFileInfo(mMachine.installed(q("lib"))).canonicalFilePath();
    package("lib").mVersion = q("1.0.1");
    mRepository.remove(q("maps")); // no longer offered, but stays installed
    mRepository.add(package("lib"));
    mRepository.publish();
    EXPECT_EQ(run(ResultSuccess).mInstalledCount, 1);
    expectInstalled();
    EXPECT_TRUE(QFileInfo::exists(tOld)) << "the previous generation needs it";
    EXPECT_EQ(text(mMachine.log(true)), "app 1.0.0 child_packages_updated\napp 1.0.0 ok\nmaps 3.1.0 ok");
}

TEST_F(UpdateRunTest, PutsADamagedPackageInANewFolder)
{
    run(ResultSuccess);
    const QString tLink = mMachine.installed(q("lib"));
    const QString tOld = QFileInfo(tLink).canonicalFilePath();
    writeFile(tOld + q("/lib.so"), "damaged");
    for (const char* tEnd : {"-r1", "-r2"}) {
        const QString tFolder = QFileInfo(tLink).canonicalFilePath();
        mMachine.request().mDamaged = {QDir(mMachine.path(q("install"))).relativeFilePath(tFolder)};
        EXPECT_EQ(run(ResultSuccess).mInstalledCount, 1) << "although the server has nothing new";
        EXPECT_EQ(QFileInfo(tLink).canonicalFilePath(), tOld + q(tEnd));
        expectInstalled();
        EXPECT_EQ(mMachine.manifest().mPrevious, 0) << "nobody goes back to what was damaged";
    }
    EXPECT_FALSE(QFileInfo::exists(tOld)) << "no generation needs it";
    EXPECT_EQ(run(ResultSuccess).mInstalledCount, 0) << "what was damaged is not installed any more";

    mMachine.request().mDamaged = {QDir(mMachine.path(q("install"))).relativeFilePath(tOld + q("-r2"))};
    mPackages.removeIf([](const TestPackage& pPackage) { return pPackage.mName == q("lib"); });
    mRepository.remove(q("lib"));
    mRepository.publish();
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(run(ResultSuccess).mText.contains(q("any more: lib."))) << "each time";
    }
}

// Whatever is wrong with a server: the result names it, installed packages do not change, and the next run
// with a good server succeeds.
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
    const std::tuple<const char*, std::function<void()>, ResultCode, int> tCases[] = {
        {"changed targets", [&] { spoil(tPath("metadata/2.targets.json")); }, ResultVerificationFailed, 0},
        {"endless timestamp", [&] { writeFile(tPath("metadata/timestamp.json"), QByteArray(1 << 20, ' ')); },
         ResultVerificationFailed, 0},
        {"expired",
         [&] {
             mRepository.setExpiry(QDateTime::currentDateTimeUtc().addSecs(-1));
             mRepository.publish();
         },
         ResultVerificationFailed, 0},
        {"no repository", [&] { QDir(mRepository.path()).removeRecursively(); }, ResultUnreachable, 0},
        {"cut package", [&] { writeFile(tTarget, readFile(tTarget).chopped(1)); }, ResultVerificationFailed,
         2},
        {"stretched package", [&] { writeFile(tTarget, readFile(tTarget) + "x"); }, ResultVerificationFailed,
         2},
        {"no package", [&] { QFile::remove(tTarget); }, ResultInstallFailed, 2},
        {"pipe for a package",
         [&] { QFile::remove(tTarget) && QProcess::execute(q("mkfifo"), {tTarget}) == 0; },
         ResultInstallFailed, 2},
    };
    for (const auto& [tName, tSpoil, tCode, tCount] : tCases) {
        SCOPED_TRACE(tName);
        // Each on its own machine, in the state after the first run.
        TestMachine tMachine(mRepository.root());
        tMachine.setServers({mRepository.uri()});
        for (const char* tFolder : {"state", "install"}) {
            tCopy(mMachine.path(q(tFolder)), tMachine.path(q(tFolder)));
        }
        tSpoil();
        const RunResult tResult = tMachine.run();
        EXPECT_EQ(tResult.mCode, tCode) << tResult.mText;
        EXPECT_EQ(tResult.mInstalledCount, tCount);
        EXPECT_GT(tResult.mText.size(), resultText(tResult.mCode).size());
        if (tCount == 0) {
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
    for (const QByteArray& tRoot : {QByteArray(), PackageRepository().root(), QByteArray("{}")}) {
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

TEST_F(UpdateRunTest, FallsBackToAServerThatIsSound)
{
    PackageRepository tLying; // of the same publisher, with other files
    const QString tCopy = mMachine.path(q("mirror"));
    QProcess::execute(q("cp"), {q("-a"), mRepository.path(), tCopy});
    spoil(QDir(tCopy + q("/targets")).entryInfoList({q("*lib*")}).first().filePath());
    const QString tLyingUri = QUrl::fromLocalFile(tCopy).toString();
    mMachine.setServers({q("file:///nowhere"), tLying.uri(), tLyingUri, mRepository.uri()});
    run(ResultSuccess);
    expectInstalled();
    EXPECT_EQ(mMachine.mMessages.size(), 3) << text(mMachine.mMessages);
}

// A server may have the newest state but lack some packages: the others are installed, and the result names
// the missing ones. A server that is behind does not help.
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

TEST_F(UpdateRunTest, GoesOnWithAPartialDownloadUnlessItIsWrong)
{
    const QByteArray tArchive = readFile(mTargets.value(q("lib")));
    const QString tHash = QFileInfo(mTargets.value(q("lib"))).fileName().section(u'.', 0, 0);
    const qsizetype tHalf = tArchive.size() / 2;
    const auto tRunFrom = [&](const QByteArray& pPart) {
        TestMachine tMachine(mRepository.root());
        tMachine.setServers({mRepository.uri()});
        writeFile(tMachine.path(q("state/downloads/")) + tHash, pPart);
        EXPECT_EQ(tMachine.run().mCode, ResultSuccess) << pPart.size();
        EXPECT_EQ(tMachine.currentFiles(), filesOf(mPackages));
        EXPECT_TRUE(QDir(tMachine.path(q("state/downloads"))).isEmpty());
    };
    for (const qsizetype tSize : {qsizetype(1), tArchive.size(), tArchive.size() + 1}) {
        tRunFrom(QByteArray(tSize, '?'));
    }
    // The server has only the rest of the file.
    writeFile(mTargets.value(q("lib")), QByteArray(tHalf, '?') + tArchive.mid(tHalf));
    tRunFrom(tArchive.first(tHalf));
}

TEST_F(UpdateRunTest, AnAdvisoryIsShownAsItWasSigned)
{
    using namespace tarn::packages;
    run(ResultSuccess);
    int tVersion = 1;
    std::optional<tarn::vkcore::Version> tSince;
    const auto tAttach = [&](const char* pName, const QByteArray& pSigned, const QByteArray& pServed,
                             int pLanguages) {
        PackageInfo tInfo = infoOf(package(pName));
        for (int i = 1; i < pLanguages; ++i) {
            tInfo.mReport.setValue(q("x") + QChar(u'a' + i / 26) + QChar(u'a' + i % 26), q("-"));
        }
        const auto tHash = *tarn::tuf::Hash::fromHex(q(tarn::tuf::sha256(pSigned)));
        tInfo.mRelease.mSecuritySince = tSince;
        tInfo.mAttachments = {{AttachmentKind::Advisory, {pSigned.size(), tHash}}};
        writeFile(mRepository.path(q("targets/")) + tInfo.mAttachments[0].name(), pServed);
        mRepository.set(mTargets.value(q(pName)), "custom", tInfo.toJson());
    };
    const QByteArray tLong(60000, 'a');
    const auto tReportWith = [&](const QByteArray& pSigned, const QByteArray& pServed, int pLanguages = 1,
                                 int pLanguagesBefore = 0) {
        package("lib").mVersion = QString::number(++tVersion);
        if (pLanguagesBefore > 0) {
            package("app").mVersion = QString::number(tVersion); // comes first
        }
        publish();
        tAttach("lib", pSigned, pServed, pLanguages);
        if (pLanguagesBefore > 0) {
            tAttach("app", tLong, tLong, pLanguagesBefore);
        }
        mRepository.publish();
        EXPECT_EQ(run(ResultSuccess).mInstalledCount, pLanguagesBefore > 0 ? 2 : 1);
        for (const auto& tRecord : mMachine.manifest().mRecords) {
            if (tRecord.mPackage == q("lib")) {
                return tRecord.mReport.bestValue(q("en")).section(u'\n', 1);
            }
        }
        return QString();
    };
    const QString tMissing = q("Advisory: (it could not be fetched)");
    EXPECT_EQ(tReportWith("Two\r\nlines", "Two\r\nlines"), q("Advisory: Two\nlines"));
    EXPECT_EQ(mMachine.mMessages, QStringList());
    EXPECT_EQ(tReportWith("\x1b[2J\xff", "\x1b[2J\xff"), q("Advisory: [2J\xef\xbf\xbd")) << "of another tool";
    EXPECT_EQ(tReportWith("signed", "forged"), tMissing);
    EXPECT_TRUE(mMachine.mMessages.join(u'|').contains(q("The advisory of the package lib is missing")));
    EXPECT_EQ(tReportWith("signed", "signed, and more"), tMissing);
    EXPECT_EQ(tReportWith(tLong, tLong), q("Advisory: " + tLong));
    EXPECT_EQ(tReportWith(tLong, tLong, 100), tMissing) << "too long in all of these languages";
    tSince = tarn::vkcore::Version(tVersion, 0, 0, 0);
    EXPECT_EQ(tReportWith("of the version before", "of the version before"), q(""));
    tSince = tarn::vkcore::Version(tVersion + 1, 0, 0, 0);
    EXPECT_EQ(tReportWith("of this one", "of this one"), q("Advisory: of this one"));
    tSince = tarn::vkcore::Version(tVersion + 1, 0, 0, 0);
    EXPECT_EQ(tReportWith("short", "short", 1, 100), q("Advisory: short")) << "after one that is too long";
    expectInstalled();
}

// The clock may be set back; it is never earlier than the newest signature.
TEST_F(UpdateRunTest, APhaseGoesOnWithTheTimeThatSignaturesProve)
{
    run(ResultSuccess);
    mMachine.request().mChoices.mIsScheduled = true;
    package("lib").mVersion = q("2.0");
    publish();
    tarn::packages::PackageInfo tInfo = infoOf(package("lib"));
    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    tInfo.mRelease.mPhase = tarn::packages::Phase{q("57"), tNow.addSecs(3600), 1};
    mRepository.set(mTargets.value(q("lib")), "custom", tInfo.toJson());
    for (const int tHours : {0, 2}) {
        mRepository.mSignedAt = tNow.addSecs(3600 * tHours);
        mRepository.publish();
        EXPECT_EQ(run(ResultSuccess).mInstalledCount, tHours == 2 ? 1 : 0) << tHours;
    }
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
    // The sum overflows the type.
    for (TestPackage& tPackage : mPackages) {
        tPackage.mVersion = q("9");
    }
    publish();
    for (const QString& tTarget : std::as_const(mTargets)) {
        mRepository.set(tTarget, "length", qint64(1) << 62);
    }
    mRepository.publish();
    run(ResultNoSpace);
}
