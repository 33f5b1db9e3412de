#include "FaultyFileSystem.h"
#include "Files.h"
#include "Test.h"

#include "metrics/MetricsFile.h"
#include "metrics/Page.h"
#include "store/RunCounters.h"

#include <QtCore/QFileInfo>
#include <QtCore/QTemporaryDir>

#include <sys/stat.h>
#include <unistd.h>

using namespace tarn::vkservice;
using metrics::MetricsFile;

namespace {

class MetricsFileTest : public testing::Test
{
protected:
    QString path(const Text& pBelow) const { return mPlace.filePath(pBelow); }
    MetricsFile file(const Text& pBelow) { return MetricsFile(mFileSystem, path(pBelow)); }

    QTemporaryDir mPlace;
    FaultyFileSystem mFileSystem;
};

} // namespace

TEST_F(MetricsFileTest, IsReplacedWholeOrNotAtAll)
{
    ASSERT_FALSE(file("a.prom").write("old"));
    int tOperation = 1;
    for (;; ++tOperation) {
        mFileSystem.failAt(tOperation, ENOSPC);
        const bool tFailed = static_cast<bool>(file("a.prom").write("new"));
        if (!mFileSystem.hasFailed()) {
            break;
        }
        const QByteArray tNow = readFile(path("a.prom"));
        EXPECT_TRUE(tNow == "old" || tNow == "new") << tNow << mFileSystem.failed();
        EXPECT_EQ(tFailed, tNow == "old") << mFileSystem.failed();
        mFileSystem.failAt(0, 0);
        EXPECT_FALSE(file("a.prom").write("old"));
        EXPECT_EQ(QDir(mPlace.path()).entryList(QDir::Files), QStringList(q("a.prom")));
    }
    EXPECT_GT(tOperation, 5);
}

TEST_F(MetricsFileTest, TrustsNoFolderOfOthersAndFollowsNoLink)
{
    for (const char* tName : {"closed", "group", "all", "sticky"}) {
        QDir().mkpath(path(tName));
    }
    ::chmod(path("group").toUtf8(), 0775);
    ::chmod(path("all").toUtf8(), 0777);
    ::chmod(path("sticky").toUtf8(), 01777);
    ::symlink("closed", path("link").toUtf8());
    writeFile(path("file"), "");
    // The service's own group may write; another one may not.
    EXPECT_FALSE(file("group/a.prom").write("x"));
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(path("group").toUtf8(), 0, ::getegid() + 1), 0);
        EXPECT_TRUE(file("group/a.prom").write("x"));
        ASSERT_EQ(::chown(path("group").toUtf8(), 4711, ::getegid()), 0);
        EXPECT_TRUE(file("group/a.prom").write("x"));
    }
    for (const char* tFolder : {"all", "sticky", "link", "file", "missing"}) {
        EXPECT_TRUE(file(q(tFolder) + q("/a.prom")).write("x")) << tFolder;
    }
    EXPECT_TRUE(QDir(path("closed")).isEmpty());

    // What has one of the file's names is replaced.
    writeFile(path("victim"), "v");
    ::symlink("../victim", path("closed/a.prom").toUtf8());
    ::symlink("../victim", path("closed/a.prom.new").toUtf8());
    EXPECT_FALSE(file("closed/a.prom").write("x"));
    EXPECT_EQ(readFile(path("victim")), "v");
    EXPECT_EQ(QFileInfo(path("closed/a.prom")).isSymLink(), false);
    QDir().mkpath(path("closed/b.prom"));
    EXPECT_TRUE(file("closed/b.prom").write("x"));
    EXPECT_FALSE(file("closed/a.prom").remove());
    EXPECT_EQ(QDir(path("closed")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList(q("b.prom")));
}

TEST(PageTest, EscapesWhatOthersHaveNamed)
{
    metrics::Page tPage;
    tPage.counter("a_total", "A.");
    tPage.value(3, {{"x", q("\"\\\n}")}, {"y", QString()}});
    EXPECT_EQ(tPage.complete(), "# HELP a_total A.\n# TYPE a_total counter\n"
                                "a_total{x=\"\\\"\\\\\\n}\",y=\"\"} 3\n# EOF\n");
}

TEST(RunCountersTest, CountWhatWasSavedByAllRunsTogether)
{
    store::RunCounters tCounters;
    const std::tuple<int, RunTraffic, qint64> tRuns[] = {
        {4, {300, 0}, 0},                         // aborted, and what it has is used by the next one
        {1, {200, 1000}, 500},  {1, {0, 0}, 500}, // nothing new
        {1, {1050, 1000}, 500}, {1, {100, 1000}, 1400},
    };
    for (const auto& [tCode, tTraffic, tSaved] : tRuns) {
        RunRecord tRecord;
        tRecord.mCode = tCode;
        tCounters.add(tRecord, tTraffic);
        tCounters = store::RunCounters::fromSettings(tCounters.toSettings());
        EXPECT_EQ(tCounters.mSaved, tSaved);
    }
    EXPECT_EQ(tCounters.mReceived, 1650);
    EXPECT_EQ(tCounters.mRuns, (QMap<int, qint64>{{1, 4}, {4, 1}}));
}
