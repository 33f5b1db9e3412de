// The ways to a package: a delta, ranges of its archive, the whole archive.

#include "TestServer.h"
#include "UpdateFixture.h"

#include <sys/stat.h>

using namespace tarn;
using namespace tarn::vkservice;

namespace {

using Beside = PackageRepository::Beside;

class SupplyTest : public UpdateFixture
{
protected:
    SupplyTest()
    {
        mRepository.setBeside(Beside::IndexAndDelta);
        mPackages = {{q("lib"),
                      q("1.0"),
                      {{q("a/same"), noise(70000, 1)}, {q("big"), noise(70000, 2)}, {q("bin/tool"), "1"}}}};
        for (const char* tName : {"app", "lib", "maps"}) {
            mRepository.remove(q(tName));
        }
        publish();
        mMachine.request().mProxyMode = vkcore::NetProxyModeManual;
        mMachine.request().mProxy = vkcore::NetProxy(false, false);
        mMachine.request().mPatience = {5, 1000, 2, 10, 2, 10};
    }

    // A new version: one file has changed a bit, one has another name.
    void publishNext(Beside pBeside)
    {
        mRepository.setBeside(pBeside);
        TestPackage& tLib = mPackages.first();
        tLib.mVersion = q("%1.0").arg(++mNumber);
        tLib.mFiles[q("big")].replace(100, 4, QByteArray::number(1000 + mNumber));
        tLib.mFiles.insert(q("moved%1").arg(mNumber), tLib.mFiles.take(q("bin/tool")));
        tLib.mFiles.insert(q("bin/tool"), QByteArray::number(mNumber));
        mRepository.remove(q("lib"));
        publish();
    }
    QString target(const char* pSuffix) const
    {
        const QStringList tNames =
            QDir(mRepository.path(q("targets"))).entryList({q("*") + q(pSuffix)}, QDir::Files, QDir::Time);
        return mRepository.path(q("targets/")) + tNames.value(0);
    }
    void changeByte(const QString& pFile, qsizetype pAt)
    {
        QByteArray tBytes = readFile(pFile);
        mSpoilt = {pFile, tBytes};
        tBytes[pAt] = static_cast<char>(tBytes[pAt] ^ 1);
        QFile::remove(pFile);
        writeFile(pFile, tBytes);
    }

    int mNumber = 1;
    std::pair<QString, QByteArray> mSpoilt; // what was there before
};

} // namespace

TEST_F(SupplyTest, TakesTheCheapestWayThatWorks)
{
    struct Case
    {
        const char* mName;
        Beside mBeside;
        QString mRequests; // of targets: their kinds and statuses
        int mWarnings;
        std::function<void()> mSpoil = [] {};
        QByteArray mConfiguration = {};
    };
    const QString tInstalled = mMachine.installed(q("lib/a/same"));
    packages::SideFile tOldDelta;
    const Case tCases[] = {
        {"delta", Beside::IndexAndDelta, q("delta 200"), 0},
        {"ranges", Beside::Index, q("index 200, range 206"), 0},
        {"nothing beside", Beside::Nothing, q("archive 200"), 0},
        {"from a version without index", Beside::Index, q("index 200, range 206"), 0},
        {"server without ranges", Beside::Index, q("index 200, range 200, archive 200"), 0, [] {},
         "max_ranges 0;"},
        {"changed byte in the delta", Beside::IndexAndDelta, q("delta 200, index 200, range 206"), 1,
         [this] { changeByte(target(".delta"), 200); }},
        {"changed byte in the index", Beside::Index, q("index 200, archive 200"), 1,
         [this] { changeByte(target(".index.zst"), 100); }},
        {"no index on the server", Beside::Index, q("index 404, archive 200"), 1,
         [this] {
             changeByte(target(".index.zst"), 0);
             QFile::remove(mSpoilt.first);
         }},
        {"from a version whose index is missing", Beside::IndexAndDelta, q("index 200, range 206"), 0},
        {"changed installed file and a delta", Beside::IndexAndDelta, q("delta 200, range 206"), 1,
         [&] { changeByte(QFileInfo(tInstalled).canonicalFilePath(), 5); }},
        {"pipe in place of the stored index", Beside::IndexAndDelta, q("index 200, range 206"), 0,
         [this] {
             const QDir tIndexes(mMachine.path(q("state/indexes")));
             for (const QString& tName : tIndexes.entryList(QDir::Files)) {
                 QFile::remove(tIndexes.filePath(tName));
                 ASSERT_EQ(::mkfifo(QFile::encodeName(tIndexes.filePath(tName)), 0600), 0);
             }
         }},
        {"delta that starts from another version", Beside::IndexAndDelta,
         q("delta 200, index 200, range 206"), 1,
         [&] {
             packages::PackageInfo tInfo = mRepository.added(q("lib"));
             tInfo.mDeltas.first().mFile = tOldDelta;
             mRepository.set(mTargets.value(q("lib")), "custom", tInfo.toJson());
             mRepository.publish();
         }},
        {"index that lies about a file", Beside::Index, q("index 200, range 206, archive 200"), 1,
         [this] {
             mRepository.mOnIndex = [](std::vector<trees::IndexEntry>* pEntries) {
                 for (trees::IndexEntry& tEntry : *pEntries) {
                     tEntry.mHash = tEntry.mPath == "big" ? tuf::Hash() : tEntry.mHash;
                 }
             };
             publishNext(Beside::Index);
             mRepository.mOnIndex = nullptr;
         }},
        {"archive is here", Beside::Index, q("index 200"), 0,
         [this] {
             const QString tArchive = mTargets.value(q("lib"));
             const QString tName = QFileInfo(tArchive).fileName().section(u'.', 0, 0);
             writeFile(mMachine.path(q("state/downloads/")) + tName, readFile(tArchive));
         }},
    };
    run(ResultSuccess);
    for (const Case& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        const packages::PackageInfo tBefore = mRepository.added(q("lib"));
        if (!tBefore.mDeltas.isEmpty()) {
            tOldDelta = tBefore.mDeltas.first().mFile;
        }
        publishNext(tCase.mBeside);
        tCase.mSpoil();
        TestServer tServer(mRepository.path());
        tServer.addConfiguration(tCase.mConfiguration);
        ASSERT_TRUE(tServer.start());
        mMachine.request().mCaFile = tServer.caFile();
        mMachine.setServers({tServer.uri()});
        run(ResultSuccess);
        EXPECT_TRUE(mMachine.currentFiles() == filesOf(mPackages));
        EXPECT_EQ(text(mMachine.litter()), "");
        EXPECT_EQ(mMachine.mMessages.size(), tCase.mWarnings) << text(mMachine.mMessages);
        QStringList tRequests;
        for (const QString& tLine : tServer.requests().filter(q("/targets/"))) {
            const QString tKind = tLine.contains(q(".delta"))   ? q("delta ")
                                  : tLine.contains(q(".index")) ? q("index ")
                                  : tLine.contains(q("?range")) ? q("range ")
                                                                : q("archive ");
            tRequests.append(tKind + tLine.section(u' ', 2, 2));
        }
        EXPECT_EQ(tRequests.join(q(", ")), tCase.mRequests);
        if (mSpoilt.first.startsWith(mRepository.path())) {
            writeFile(mSpoilt.first, mSpoilt.second);
        }
    }
}

// The first server has the delta of the library, but not its archive, which a changed file makes necessary.
TEST_F(SupplyTest, TheNextServerHasWhatAnotherLackedAtTheSecondLook)
{
    mPackages.append({q("app"), q("1.0"), {{q("app.dat"), noise(5000, 3)}}});
    mRepository.add(package("app"));
    mRepository.publish();
    run(ResultSuccess);
    package("app").mVersion = q("2.0");
    package("app").mFiles[q("app.dat")][7] = '!';
    mRepository.remove(q("app"));
    publishNext(Beside::IndexAndDelta);
    changeByte(QFileInfo(mMachine.installed(q("lib/a/same"))).canonicalFilePath(), 5);
    const QString tLacking = mMachine.path(q("lacking"));
    QProcess::execute(q("cp"), {q("-a"), mRepository.path(), tLacking});
    QFile::remove(tLacking + q("/targets/") + QFileInfo(mTargets.value(q("lib"))).fileName());
    TestServer tServer(mRepository.path());
    ASSERT_TRUE(tServer.start());
    mMachine.request().mCaFile = tServer.caFile();
    mMachine.setServers({QUrl::fromLocalFile(tLacking).toString(), tServer.uri()});
    int tStaged = 0;
    mMachine.fileSystem().mObserver = [&tStaged](int, const QByteArray& pOperation) {
        tStaged += pOperation.startsWith("mkdir") && pOperation.contains("/.staging/app-") ? 1 : 0;
    };
    run(ResultSuccess);
    mMachine.fileSystem().mObserver = nullptr;
    expectInstalled();
    EXPECT_EQ(tStaged, 1);
    const QStringList tRequests = tServer.requests().filter(q("/targets/"));
    EXPECT_EQ(tRequests.filter(q("?range 206")).size(), tRequests.size()) << text(tRequests);
    EXPECT_EQ(tRequests.size(), 1);
    EXPECT_EQ(mMachine.mMessages.filter(q("trying the next one")).size(), 1) << text(mMachine.mMessages);
}
