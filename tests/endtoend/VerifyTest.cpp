#include "Machine.h"
#include "RawPeer.h"
#include "Test.h"

#include <QtCore/QFileInfo>

#include <cstdlib>

// Proof and repair of what is installed: vkctl, the real service and a publisher.

namespace {

constexpr auto sWrite = QFile::WriteOwner | QFile::WriteUser;

class VerifyTest : public testing::Test
{
protected:
    VerifyTest()
    {
        mMachine.add("viewer", "1.0.0", {"--requires", "charts"});
        mMachine.add("charts", "7.1", {"--kind", "data"});
        mMachine.publish();
        EXPECT_EQ(mMachine.rkm({"update", "--quiet"}).mStatus, 0);
        keepIndexes();
    }

    Program::Result vkctl(const QList<QByteArray>& pArguments) const
    {
        return mMachine.installation().start(pArguments, Program::Console::Pipes, "vkctl")->wait();
    }
    void expectVkctl(const QList<QByteArray>& pArguments, int pStatus, const QByteArray& pPart,
                     int pLine = __builtin_LINE()) const
    {
        const Program::Result tResult = vkctl(pArguments);
        EXPECT_EQ(tResult.mStatus, pStatus) << tResult.mErr << tResult.mOut << "line " << pLine;
        EXPECT_TRUE(tResult.mOut.contains(pPart)) << tResult.mOut << "line " << pLine;
    }
    QString installed(const Text& pBelow) const { return mMachine.path(q("installed/current/") + pBelow); }
    void damage(const Text& pFile) const
    {
        QByteArray tContent = readFile(installed(pFile));
        ASSERT_FALSE(tContent.isEmpty());
        tContent[0] = '#';
        const QString tFolder = QFileInfo(installed(pFile)).path();
        for (const QString& tPath : {tFolder, installed(pFile)}) {
            QFile::setPermissions(tPath, QFile::permissions(tPath) | QFile::WriteOwner);
        }
        writeFile(installed(pFile), tContent);
        QFile::setPermissions(installed(pFile), QFile::permissions(installed(pFile)) & ~sWrite);
        QFile::setPermissions(tFolder, QFile::permissions(tFolder) & ~sWrite);
    }
    // Gives the machine the indexes of its packages if the update has not.
    void keepIndexes() const
    {
        const QJsonObject tManifest = QJsonDocument::fromJson(readFile(installed(".manifest.json"))).object();
        QDir().mkpath(mMachine.path("state/indexes"));
        for (const QJsonValue tPackage : tManifest.value(q("packages")).toArray()) {
            const QJsonObject tIndex = tPackage[q("info")][q("index")].toObject();
            const QString tText = tIndex.value(q("text"))[q("sha256")].toString();
            ASSERT_FALSE(tText.isEmpty());
            QFile::copy(
                mMachine.path(q("repository/targets/%1.index.zst").arg(tIndex.value(q("sha256")).toString())),
                mMachine.path(q("state/indexes/%1.zst").arg(tText)));
        }
    }

    mutable Machine mMachine;
};

} // namespace

TEST_F(VerifyTest, DamageIsFoundToldAndRepaired)
{
    const auto tService = mMachine.startService();
    RawPeer tMonitor(mMachine.installation().socketPath());
    ASSERT_EQ(tMonitor.call("enterMonitorMode"), true);
    expectVkctl({"status"}, 0, "  viewer 1.0.0.0: not verified yet\n");
    expectVkctl({"verify"}, 0, "All files are as they were published.\n");
    expectVkctl({"repair"}, 0, "No package is known to be damaged");

    damage("viewer/share/1.txt");
    writeFile(installed("charts/extra"), "x");
    const QString tOld = QFileInfo(installed("viewer")).canonicalFilePath();
    expectVkctl({"verify"}, 2, "  share/1.txt: has other content\n");
    expectVkctl({"status"}, 2, "  extra: does not belong to the package\n");
    EXPECT_TRUE(tMonitor.waitForEvent("serviceErrorReceived"));
    EXPECT_TRUE(tMonitor.waitForEvent("verificationChanged", "damaged", 2));
    const QByteArray tLog = mMachine.installation().readFile("log/vkservice.log");
    EXPECT_TRUE(tLog.contains("share/1.txt has other content")) << tLog;

    expectVkctl({"repair"}, 0, "The damaged packages were installed again.\n");
    EXPECT_EQ(mMachine.installedVersion("viewer"), q("1.0.0"));
    EXPECT_EQ(QFileInfo(installed("viewer")).canonicalFilePath(), tOld + q("-r1"));
    EXPECT_FALSE(QFileInfo::exists(tOld)) << "nobody goes back to it";
    expectVkctl({"verify"}, 0, "All files are as they were published.\n");
    EXPECT_TRUE(mMachine.rkm({"install-log"}).mOut.contains("it was repaired"))
        << mMachine.rkm({"install-log"}).mOut;

    // Made writable before, since not everybody who runs this is root.
    const QByteArray tCharts = QFile::encodeName(QFileInfo(installed("charts")).canonicalFilePath());
    ASSERT_EQ(std::system(("chmod -R u+w '" + tCharts + "' && rm -r '" + tCharts + "'").constData()), 0);
    expectVkctl({"verify"}, 2, "charts");
    expectVkctl({"repair"}, 0, "The damaged packages were installed again.\n");

    damage("viewer/version");
    expectVkctl({"verify"}, 2, "  version: has other content\n");
    mMachine.installation().publish({"remove", "viewer"});
    mMachine.publish();
    expectVkctl({"repair"}, 2, "does not offer their installed versions any more: viewer.");
    EXPECT_FALSE(mMachine.installedVersion("viewer").isEmpty());
}

TEST_F(VerifyTest, AWorkerServesItAndTheRecordOutlivesIt)
{
    damage("viewer/share/1.txt");
    const QByteArray tJson = vkctl({"verify", "--json"}).mOut;
    EXPECT_EQ(QJsonDocument::fromJson(tJson).object().value(q("result")).toString(), q("damaged")) << tJson;
    writeFile(installed("charts/odd\nname"), "x");
    expectVkctl({"verify"}, 2, "  odd name: does not belong to the package\n");
    EXPECT_TRUE(vkctl({"status", "--json"}).mOut.contains(R"("path":"odd\nname")"));
    expectVkctl({"status"}, 2, "  share/1.txt: has other content\n");

    // An index that is not the one of the package proves nothing.
    const QDir tIndexes(mMachine.path("state/indexes"));
    const QStringList tNames = tIndexes.entryList(QDir::Files);
    ASSERT_EQ(tNames.size(), 2);
    for (const QString& tName : tNames) {
        writeFile(tIndexes.filePath(tName), readFile(tIndexes.filePath(tName)).chopped(9));
    }
    expectVkctl({"verify"}, 3,
                "These packages have no index and can't be proven: charts 7.1.0.0, viewer 1.0.0.0\n");
    mMachine.rkm({"update"});
    expectVkctl({"verify"}, 2, "  share/1.txt: has other content\n");
}
