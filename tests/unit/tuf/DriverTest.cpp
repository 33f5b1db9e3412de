// The built vktuf against a web server.
#include "HttpServer.h"
#include "Program.h"
#include "Test.h"
#include "TestRepository.h"

#include "tuf/Hashes.h"

using namespace tarn::tuf;

namespace {

class DriverTest : public testing::Test
{
protected:
    DriverTest()
    {
        // The driver measures expiry by the machine's clock.
        for (TestRepository::Role& tRole : mRepository.mRoles) {
            tRole.mExpires = QDateTime(QDate(2999, 1, 1), QTime(0, 0), Qt::UTC);
        }
        QDir(mDir.path()).mkdir(q("downloads"));
    }

    void publish()
    {
        mRepository.publishRoot();
        mRepository.publish();
        for (const TestRepository::Role& tRole : mRepository.mRoles) {
            for (auto tIt = tRole.mTargets.begin(); tIt != tRole.mTargets.end(); ++tIt) {
                mContents.append(*tIt);
            }
        }
    }

    void add(const QString& pPath, const QByteArray& pContent)
    {
        mRepository.mRoles[q("targets")].mTargets[pPath] = pContent;
    }

    QByteArray answer(const QByteArray& pPath)
    {
        const QString tMetadata = q(pPath.mid(10));
        if (mOverride.contains(pPath)) {
            return mOverride[pPath];
        }
        if (pPath.startsWith("/metadata/") && mRepository.mFiles.contains(tMetadata)) {
            return HttpServer::ok(mRepository.mFiles[tMetadata]);
        }
        for (const QByteArray& tContent : mContents) {
            if (pPath.startsWith("/targets/") && pPath.contains(sha256(tContent))) {
                return HttpServer::ok(tContent);
            }
        }
        return HttpServer::status("404 Not Found");
    }

    Program::Result run(const QList<QByteArray>& pArguments)
    {
        const QList<QByteArray> tCommon{"--metadata-dir", path("trusted"), "--metadata-url",
                                        mServer.url() + "/metadata"};
        Program tProgram(q(VKTUF), tCommon + pArguments, {{"LC_ALL", "C.UTF-8"}});
        mServer.takeRequests();
        return tProgram.wait();
    }

    int init()
    {
        writeFile(mDir.filePath(q("1.root.json")), mRepository.mFiles[q("1.root.json")]);
        return run({"init", path("1.root.json")}).mStatus;
    }

    int download(const QList<QByteArray>& pNames)
    {
        QList<QByteArray> tArguments;
        for (const QByteArray& tName : pNames) {
            tArguments << "--target-name" << tName;
        }
        return run(tArguments + QList<QByteArray>{"--target-base-url", mServer.url() + "/targets/",
                                                  "--target-dir", path("downloads"), "download"})
            .mStatus;
    }

    QByteArray path(const char* pBelow) const { return mDir.filePath(q(pBelow)).toUtf8(); }

    QByteArray downloaded(const char* pName) const
    {
        return readFile(mDir.filePath(q("downloads/") + q(pName)));
    }

    QStringList downloads() const
    {
        return QDir(mDir.filePath(q("downloads")))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    QTemporaryDir mDir;
    TestRepository mRepository;
    QList<QByteArray> mContents;            // of targets
    QMap<QByteArray, QByteArray> mOverride; // path -> the whole answer
    HttpServer mServer{[this](const QByteArray& pPath) { return answer(pPath); }};
};

TEST_F(DriverTest, RefreshesFromARootFile)
{
    publish();
    ASSERT_EQ(init(), 0);
    EXPECT_EQ(run({"refresh"}).mStatus, 0);
    EXPECT_EQ(mServer.takeRequests(),
              (QList<QByteArray>{"/metadata/2.root.json", "/metadata/3.root.json", "/metadata/timestamp.json",
                                 "/metadata/2.snapshot.json", "/metadata/2.targets.json"}));
    EXPECT_EQ(QDir(q(path("trusted"))).entryList(QDir::Files | QDir::Hidden),
              (QStringList{q("root.json"), q("snapshot.json"), q("targets.json"), q("timestamp.json")}));
    mRepository.mFiles[q("timestamp.json")].replace("version\":2", "version\":3");
    const Program::Result tResult = run({"refresh"});
    EXPECT_EQ(tResult.mStatus, 1);
    EXPECT_TRUE(tResult.mErr.startsWith("vktuf: The timestamp metadata")) << tResult.mErr;
}

TEST_F(DriverTest, DownloadsSeveralTargetsAndNoneTwice)
{
    add(q("one"), "1");
    add(q("folder/odd ?#%.bin"), QByteArray(300000, 'x'));
    add(q("empty"), "");
    publish();
    ASSERT_EQ(init(), 0);
    EXPECT_EQ(download({"folder/odd ?#%.bin", "one", "empty"}), 0);
    const QByteArray tOdd = "/targets/folder/" + sha256(QByteArray(300000, 'x')) + ".odd%20%3F%23%25.bin";
    EXPECT_EQ(mServer.takeRequests().mid(5), (QList<QByteArray>{tOdd, "/targets/" + sha256("1") + ".one",
                                                                "/targets/" + sha256("") + ".empty"}));
    EXPECT_EQ(downloads(), (QStringList{q("empty"), q("folder%2Fodd%20%3F%23%25.bin"), q("one")}));
    EXPECT_EQ(downloaded("folder%2Fodd%20%3F%23%25.bin"), QByteArray(300000, 'x'));

    EXPECT_EQ(download({"one", "empty"}), 0);
    EXPECT_EQ(mServer.takeRequests().size(), 2); // root and timestamp

    add(q("one"), "2");
    publish();
    EXPECT_EQ(download({"one"}), 0);
    EXPECT_EQ(downloaded("one"), "2");
}

TEST_F(DriverTest, StoresTargetsWithPathsOfAnyLength)
{
    const QString tPaths[] = {QString(240, u'a'), QString(241, u'a'), q("folder/").repeated(50) + q("a"),
                              q("folder/").repeated(50) + q("b")};
    QList<QByteArray> tNames;
    for (const QString& tPath : tPaths) {
        add(tPath, tPath.toUtf8());
        tNames.append(tPath.toUtf8());
    }
    publish();
    ASSERT_EQ(init(), 0);
    EXPECT_EQ(download(tNames), 0);
    EXPECT_EQ(downloads().size(), 4);
    EXPECT_EQ(downloaded(tNames[0]), tNames[0]);
    EXPECT_EQ(downloaded("sha256:" + sha256(tNames[3])), tNames[3]);
}

TEST_F(DriverTest, AWrongTargetIsNotStored)
{
    add(q("one"), "12345");
    publish();
    ASSERT_EQ(init(), 0);
    const QByteArray tPath = "/targets/" + sha256("12345") + ".one";
    const QByteArray tAnswers[] = {
        HttpServer::ok("12346"),
        HttpServer::ok("1234"),
        HttpServer::ok(QByteArray(1 << 20, '1')),
        HttpServer::ok("12345").replace("Content-Length: 5", "Content-Length: 6"),
        HttpServer::status("404 Not Found"),
        HttpServer::status("500 Broken"),
        HttpServer::status("302 Elsewhere"),
        QByteArray(),
    };
    for (const QByteArray& tAnswer : tAnswers) {
        SCOPED_TRACE(tAnswer.left(60));
        mOverride[tPath] = tAnswer;
        EXPECT_EQ(download({"one"}), 1);
        EXPECT_EQ(downloads(), QStringList());
    }
    mOverride.clear();
    EXPECT_EQ(download({"nothing", "one"}), 1); // ends at the first that is not offered
    EXPECT_EQ(downloads(), QStringList());
    EXPECT_EQ(download({"one"}), 0);
    EXPECT_EQ(downloaded("one"), "12345");
}

TEST_F(DriverTest, TellsAMissingRootFromABrokenServer)
{
    publish();
    ASSERT_EQ(init(), 0);
    const QByteArray tPath = "/metadata/4.root.json";
    const struct
    {
        QByteArray mStatus;
        int mExpected;
    } sCases[] = {{"404 Not Found", 0}, {"403 Forbidden", 0}, {"500 Broken", 1}, {"301 Moved", 1}};
    for (const auto& tCase : sCases) {
        mOverride[tPath] = HttpServer::status(tCase.mStatus);
        mOverride["/metadata/3.root.json"] = HttpServer::status(tCase.mStatus);
        EXPECT_EQ(run({"refresh"}).mStatus, tCase.mExpected) << tCase.mStatus;
    }
}

TEST_F(DriverTest, RefusesWrongUse)
{
    publish();
    EXPECT_EQ(run({"refresh"}).mStatus, 1); // before init
    EXPECT_EQ(run({"init", path("missing")}).mStatus, 1);
    EXPECT_EQ(run({"init"}).mStatus, 1);
    EXPECT_EQ(run({"other"}).mStatus, 1);
    EXPECT_EQ(run({"--unknown", "refresh"}).mStatus, 1);
    EXPECT_EQ(run({"--help"}).mStatus, 0);
}

} // namespace
