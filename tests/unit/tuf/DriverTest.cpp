// The built vktuf against a web server.
#include "Program.h"
#include "Test.h"
#include "TestRepository.h"

#include "tuf/Hashes.h"

namespace {

const Program::Environment sEnvironment{{"LC_ALL", "C.UTF-8"}};
const QByteArray sOdd = "folder/odd ?#%.bin";

class DriverTest : public testing::Test
{
protected:
    DriverTest()
    {
        // The driver measures expiry by the machine's clock.
        for (TestRepository::Role& tRole : mRepository.mRoles) {
            tRole.mExpires = QDateTime(QDate(2999, 1, 1), QTime(0, 0), Qt::UTC);
        }
        mRepository.mRoles[sTargetsRole].mTargets = {
            {q("one"), "12345"}, {q(sOdd), QByteArray(300000, 'x')}, {mLong, "long"}};
        mRepository.publishRoot();
        mRepository.publish();
        for (auto tIt = mRepository.mFiles.begin(); tIt != mRepository.mFiles.end(); ++tIt) {
            writeFile(mDir.filePath(q("web/metadata/") + tIt.key()), *tIt);
        }
        for (const auto& [tPath, tContent] : mRepository.mRoles[sTargetsRole].mTargets.asKeyValueRange()) {
            writeFile(target(tPath), tContent);
        }
        QDir(mDir.path()).mkpath(q("downloads"));
        mServer.waitForOutput("http://127.0.0.1:");
        mUrl = "http://127.0.0.1:" + mServer.output().split(' ').value(5);
    }

    // The path of a target's content on the server.
    QString target(const QString& pPath) const
    {
        const qsizetype tName = pPath.lastIndexOf(u'/') + 1;
        const QByteArray tHash = tarn::tuf::sha256(mRepository.mRoles[sTargetsRole].mTargets[pPath]);
        return mDir.filePath(q("web/targets/") + pPath.left(tName) + q(tHash) + u'.' + pPath.mid(tName));
    }

    Program::Result run(const QList<QByteArray>& pArguments) const
    {
        const QList<QByteArray> tCommon{"--metadata-dir", path("trusted"), "--metadata-url",
                                        mUrl + "/metadata"};
        return Program(q(VKTUF), tCommon + pArguments, sEnvironment).wait();
    }

    int download(const QList<QByteArray>& pNames) const
    {
        QList<QByteArray> tArguments{"--target-base-url", mUrl + "/targets/", "--target-dir",
                                     path("downloads")};
        for (const QByteArray& tName : pNames) {
            tArguments << "--target-name" << tName;
        }
        return run(tArguments + QList<QByteArray>{"download"}).mStatus;
    }

    QByteArray path(const char* pBelow) const { return mDir.filePath(q(pBelow)).toUtf8(); }
    QDir downloads() const { return QDir(mDir.filePath(q("downloads"))); }

    QTemporaryDir mDir;
    TestRepository mRepository;
    const QString mLong = q("folder/").repeated(50) + q("b");
    Program mServer{q("/usr/bin/python3"),
                    {"-u", "-m", "http.server", "--bind", "127.0.0.1", "--directory", path("web"), "0"},
                    sEnvironment};
    QByteArray mUrl;
};

TEST_F(DriverTest, FollowsARepositoryAndDownloads)
{
    EXPECT_EQ(run({"refresh"}).mStatus, 1) << "before init";
    EXPECT_EQ(run({"init"}).mStatus, 1);
    EXPECT_EQ(run({"--unknown", "refresh"}).mStatus, 1);
    ASSERT_EQ(run({"init", path("web/metadata/1.root.json")}).mStatus, 0);
    EXPECT_EQ(run({"refresh"}).mStatus, 0);
    EXPECT_EQ(QDir(q(path("trusted"))).entryList(QDir::Files | QDir::Hidden),
              (QStringList{q("root.json"), q("snapshot.json"), q("targets.json"), q("timestamp.json")}));
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(download({sOdd, "one", mLong.toUtf8()}), 0);
        EXPECT_EQ(readFile(downloads().filePath(q("folder%2Fodd%20%3F%23%25.bin"))), QByteArray(300000, 'x'));
        EXPECT_EQ(readFile(downloads().filePath(q("sha256:" + tarn::tuf::sha256(mLong.toUtf8())))), "long");
        QDir(q(path("web/targets"))).removeRecursively(); // they are here already
    }
    // A wrong target is not stored.
    downloads().removeRecursively();
    QDir(mDir.path()).mkpath(q("downloads"));
    for (const char* tContent : {"12346", "1234", "123456"}) {
        writeFile(target(q("one")), tContent);
        EXPECT_EQ(download({"one", sOdd}), 1);
        EXPECT_TRUE(downloads().isEmpty());
    }
    spoil(q(path("web/metadata/timestamp.json")));
    const Program::Result tResult = run({"refresh"});
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_TRUE(tResult.mErr.startsWith("vktuf: The timestamp metadata")) << tResult.mErr;
}

} // namespace
