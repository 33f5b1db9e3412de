// What a machine trusts, and which servers it skips because of that.

#include "UpdateFixture.h"

#include "os/FileSystem.h"
#include "tuf/Hashes.h"
#include "update/TrustAdoption.h"

#include <QtCore/QProcess>
#include <QtCore/QSet>

using namespace tarn;
using namespace tarn::vkservice;
using namespace tarn::vkservice::update;

class TrustTest : public UpdateFixture
{
protected:
    // What the machine trusts.
    QString metadata() const
    {
        const QString tHash = q(tarn::tuf::sha256(mRepository.root()));
        return mMachine.path(q("state/trust/%1/metadata").arg(tHash));
    }

    // The address of a copy of the repository in its current state.
    QString mirror(const char* pName) const
    {
        const QString tCopy = mMachine.path(q(pName));
        QProcess::execute(q("cp"), {q("-a"), mRepository.path(), tCopy});
        return QUrl::fromLocalFile(tCopy).toString();
    }
};

TEST_F(TrustTest, SaysWhatToDoWhenItsTrustIsDamaged)
{
    ASSERT_EQ(mMachine.run().mCode, ResultSuccess);
    writeFile(metadata() + q("/root.json"), "damaged");
    mRepository.publish();
    mMachine.setServers({mRepository.uri(), mRepository.uri() + u'/'});
    EXPECT_TRUE(run(ResultStoreDamaged).mText.contains(metadata())) << "another server does not help";
    QFile::remove(metadata() + q("/root.json"));
    EXPECT_TRUE(run(ResultStoreDamaged).mText.contains(metadata())) << "not back to an older root";
    QDir(metadata()).removeRecursively();
    run(ResultSuccess);
}

TEST_F(TrustTest, PassesOverAServerThatIsBehind)
{
    const QString tAsked = mirror("asked");
    const QString tNeverAsked = mirror("never-asked");
    mMachine.setServers({tAsked});
    run(ResultSuccess);
    mRepository.publish(); // changes nothing for this machine
    mMachine.setServers({mRepository.uri()});
    run(ResultSuccess);
    for (const QStringList& tServers : {QStringList{tAsked}, {tNeverAsked}, {tAsked, tNeverAsked}}) {
        mMachine.setServers(tServers);
        const RunResult tResult = run(ResultVerificationFailed);
        EXPECT_TRUE(tResult.mText.startsWith(q("Every update server that answered is out of date")));
        mMachine.setServers(tServers + QStringList{mRepository.uri()});
        run(ResultSuccess);
        EXPECT_EQ(mMachine.mMessages.filter(q("out of date")).size(), tServers.size());
    }
}

// Each lacks one package, but only one has the newest state.
TEST_F(TrustTest, TakesNothingOfAnOlderStateOnceItKnowsANewerOne)
{
    QFile::remove(mTargets.value(q("maps")));
    const QString tOld = mirror("old");
    package("lib").mVersion = q("2.0");
    mRepository.add(package("lib"));
    mRepository.publish();
    mMachine.setServers({tOld, mRepository.uri()});
    run(ResultInstallFailed);
    EXPECT_EQ(text(mMachine.packages()), "app 1.0.0\nlib 2.0.0");
}

// Version 1.0.0 had trusted metadata for each address.
TEST_F(TrustTest, TakesOverTheTrustOfVersionOne)
{
    const QByteArray tRootHash = tarn::tuf::sha256(mRepository.root());
    const QString tOldMirror = mirror("old");
    const QString tKeep = mMachine.path(q("keep"));
    run(ResultSuccess);
    QDir().rename(metadata(), tKeep + q("1"));
    mRepository.publish();
    run(ResultSuccess);
    QDir().rename(metadata(), tKeep + q("2"));
    for (int i = 0, tFailed = true; tFailed != 0; ++i) { // 0: nothing fails
        SCOPED_TRACE(i);
        TestMachine tMachine(mRepository.root());
        const QString tTrust = tMachine.path(q("state/trust/"));
        QDir().mkpath(tTrust);
        int tNumber = 0;
        for (const QString& tUri : {tOldMirror, mRepository.uri(), q("https://other")}) {
            const QString tOld = tTrust + q(tarn::tuf::sha256(tUri.toUtf8()).left(32));
            QProcess::execute(q("cp"), {q("-a"), tKeep + (++tNumber == 2 ? u'2' : u'1'), tOld});
            writeFile(tOld + q(".note.json"), tNumber == 3 ? "" : "{\"root\": \"" + tRootHash + "\"}");
        }
        if (i % 2 == 1) { // it was needed only once
            QFile::remove(tMachine.request().mRootFile);
        }
        tMachine.setServers({tOldMirror});
        tMachine.fileSystem().mForGood = true;
        tMachine.fileSystem().failAt(i, EIO);
        tMachine.run();
        tFailed = i == 0 || tMachine.fileSystem().hasFailed();
        tMachine.fileSystem().failAt(0, 0);
        EXPECT_TRUE(tMachine.run().mText.contains(q("out of date")));
        const QStringList tNames = QDir(tTrust).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
        EXPECT_EQ(QSet<QString>(tNames.begin(), tNames.end()), (QSet<QString>{q(tRootHash), q("current")}));
        tMachine.setServers({mRepository.uri()});
        EXPECT_EQ(tMachine.run().mCode, ResultSuccess);
    }
}

// Its keys may have been stolen and replaced since then.
TEST_F(TrustTest, TakesOverNothingThatAnOlderRootLetIn)
{
    const auto tFile = [](int pVersion) {
        return "{\"signed\": {\"version\": " + QByteArray::number(pVersion) + "}}";
    };
    for (const QChar tNewer : {u'1', u'2'}) { // by its folder's name
        const QString tTrust = mMachine.path(q("trust") + tNewer);
        for (const QChar tName : {u'1', u'2'}) {
            const QString tOld = tTrust + u'/' + QString(32, tName);
            QDir().mkpath(tOld);
            writeFile(tOld + q("/root.json"), tFile(tName == tNewer ? 2 : 1));
            writeFile(tOld + q("/timestamp.json"), tFile(tName == tNewer ? 5 : 9));
        }
        EXPECT_FALSE(TrustAdoption(os::realFileSystem(), tTrust).adopt("hash", tTrust + q("/hash")));
        EXPECT_EQ(readFile(tTrust + q("/hash/root.json")), tFile(2));
        EXPECT_EQ(readFile(tTrust + q("/hash/timestamp.json")), tFile(5));
    }
}

// The clock can't be set here, so the test stores the time that an earlier run proved.
TEST_F(TrustTest, NothingIsUpToDateThatHasExpired)
{
    run(ResultSuccess);
    const QString tTimestamp = mRepository.path(q("metadata/timestamp.json"));
    const QByteArray tGood = readFile(tTimestamp);
    mRepository.setExpiry(QDateTime::currentDateTimeUtc().addDays(20));
    mRepository.publish();
    writeFile(metadata() + q("/timestamp.refused"), readFile(tTimestamp));
    writeFile(tTimestamp, tGood);
    const RunResult tResult = run(ResultVerificationFailed);
    EXPECT_TRUE(tResult.mText.contains(q("clock"))) << tResult.mText;
}
