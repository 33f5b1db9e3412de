// The built vktuf against a web server.
#include "Program.h"
#include "Test.h"
#include "TestRepository.h"

#include "tuf/Hashes.h"

TEST(DriverTest, FollowsARepositoryAndDownloads)
{
    const Program::Environment tEnvironment{{"LC_ALL", "C.UTF-8"}};
    const QTemporaryDir tDir;
    const auto tPath = [&](const char* pBelow) { return tDir.filePath(q(pBelow)).toUtf8(); };
    Program tServer(q("/usr/bin/python3"),
                    {"-u", "-m", "http.server", "--bind", "127.0.0.1", "--directory", tPath("web"), "0"},
                    tEnvironment);
    // The driver measures expiry by the machine's clock.
    TestRepository tRepository(QDateTime::currentDateTimeUtc());
    tRepository.mRoles[sTargetsRole].mTargets = {{q("folder/odd ?#%.bin"), "12345"}};
    tRepository.publish();
    for (const auto& [tName, tContent] : tRepository.mFiles.asKeyValueRange()) {
        writeFile(tDir.filePath(q("web/metadata/") + tName), tContent);
    }
    QDir(tDir.path()).mkpath(q("downloads"));
    ASSERT_TRUE(tServer.waitForOutput("http://127.0.0.1:"));
    const QByteArray tUrl = "http://127.0.0.1:" + tServer.output().split(' ').value(5);
    const auto tStatus = [&](const QList<QByteArray>& pArguments) {
        const QList<QByteArray> tCommon{"--metadata-dir",    tPath("trusted"),  "--metadata-url",
                                        tUrl + "/metadata",  "--target-dir",    tPath("downloads"),
                                        "--target-base-url", tUrl + "/targets/"};
        return Program(q(VKTUF), tCommon + pArguments, tEnvironment).wait().mStatus;
    };
    EXPECT_EQ(tStatus({"refresh"}), 1) << "before init";
    ASSERT_EQ(tStatus({"init", tPath("web/metadata/1.root.json")}), 0);
    EXPECT_EQ(tStatus({"refresh"}), 0);
    const QString tTarget = q("web/targets/folder/") + q(tarn::tuf::sha256("12345")) + q(".odd ?#%.bin");
    const QDir tDownloads(tDir.filePath(q("downloads")));
    for (const char* tContent : {"12346", "1234", "123456", "12345"}) { // the last one is right
        EXPECT_TRUE(tDownloads.isEmpty());
        writeFile(tDir.filePath(tTarget), tContent);
        EXPECT_EQ(tStatus({"--target-name", "folder/odd ?#%.bin", "download"}),
                  q(tContent) == q("12345") ? 0 : 1);
    }
    EXPECT_EQ(readFile(tDownloads.filePath(q("folder%2Fodd%20%3F%23%25.bin"))), "12345");
    spoil(q(tPath("web/metadata/timestamp.json")));
    EXPECT_EQ(tStatus({"refresh"}), 1);
}
