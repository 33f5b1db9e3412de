#include "FaultyFileSystem.h"
#include "Test.h"
#include "TestArchive.h"

#include "os/AbortFlag.h"
#include "packages/EntryPath.h"
#include "packages/Unpacker.h"

#include <algorithm>

using namespace tarn;
using namespace tarn::packages;
using Kind = Failure::Kind;

namespace {

constexpr mode_t sFile = S_IFREG | 0644;
constexpr mode_t sLink = S_IFLNK | 0777;
constexpr mode_t sDir = S_IFDIR | 0755;

class UnpackerTest : public testing::Test
{
protected:
    Failure unpack(const QByteArray& pArchive, const UnpackLimits& pLimits = {1000, 50, 8})
    {
        const QString tPath = mDir.filePath(q("archive"));
        writeFile(tPath, pArchive);
        mFolder = mDir.filePath(q("out/%1").arg(++mCount));
        QDir(mDir.path()).mkpath(q("out"));
        return Unpacker(mFileSystem, &mAbort).unpack(tPath, mFolder, pLimits, [this](qint64 pBytes) {
            mBytes += pBytes;
        });
    }

    mode_t modeOf(const char* pBelow) const
    {
        struct stat tStat = {};
        ::lstat(QFile::encodeName(mFolder + u'/' + q(pBelow)).constData(), &tStat);
        return tStat.st_mode;
    }

    QTemporaryDir mDir;
    FaultyFileSystem mFileSystem;
    os::AbortFlag mAbort;
    QString mFolder;
    qint64 mBytes = 0;
    int mCount = 0;
};

} // namespace

TEST_F(UnpackerTest, UnpacksFilesFoldersAndLinks)
{
    const QByteArray tName("\xc3\xa4 b");
    const QByteArray tLong(200, 'n'); // longer than the plain header's field
    const mode_t tOldMask = ::umask(077);
    const Failure tFailure = unpack(makeArchive({{"./", "", sDir},
                                                 {"bin/", "", S_IFDIR | 0700},
                                                 {"./bin/tool", "#!", S_IFREG | 06711},
                                                 {"lib/deep/er/file", "f", S_IFREG | 0600},
                                                 {"lib/link", "deep/er/file", sLink},
                                                 {"lib/deep/up", "../../bin/tool", sLink},
                                                 {tName, "umlaut"},
                                                 {"d/" + tLong, "long"},
                                                 {"empty", ""}}));
    ::umask(tOldMask);
    EXPECT_FALSE(tFailure) << tFailure.mText;
    const QMap<QString, QByteArray> tExpected{{q("bin/tool"), "#!"},
                                              {q("lib/deep/er/file"), "f"},
                                              {q("lib/link"), "-> deep/er/file"},
                                              {q("lib/deep/up"), "-> ../../bin/tool"},
                                              {q(tName), "umlaut"},
                                              {q("d/" + tLong), "long"},
                                              {q("empty"), ""}};
    EXPECT_EQ(readTree(mFolder), tExpected);
    EXPECT_EQ(mBytes, 13);
    EXPECT_EQ(modeOf("bin/tool"), S_IFREG | 0555);
    EXPECT_EQ(modeOf("lib/deep/er/file"), S_IFREG | 0444);
    EXPECT_EQ(modeOf("bin"), S_IFDIR | 0555);
    EXPECT_EQ(modeOf("."), S_IFDIR | 0755);
}

TEST_F(UnpackerTest, FillsTheHolesOfSparseFiles)
{
    QByteArray tContent(300 * 1024, '\0');
    tContent.replace(0, 3, "one").replace(200 * 1024, 3, "two");
    const QByteArray tArchive = makeArchive({{"s", tContent, sFile, false, {{0, 512}, {200 * 1024, 512}}}});
    EXPECT_FALSE(unpack(tArchive, {tContent.size(), 50, 8}));
    EXPECT_EQ(readTree(mFolder).value(q("s")), tContent);
    EXPECT_EQ(unpack(tArchive, {1024, 50, 8}).mKind, Kind::Content) << "holes count as well";
}

TEST_F(UnpackerTest, RefusesWhatLeadsOutOrIsNoPlainFile)
{
    const QByteArray tDeep("1/2/3/4/5/6/7/8/9/10");
    const struct
    {
        const char* mName;
        QList<TestEntry> mEntries;
    } tCases[] = {
        {"parent", {{"../evil", "x"}}},
        {"parent inside", {{"a/../../evil", "x"}}},
        {"absolute", {{"/tmp/evil-of-the-unpacker-test", "x"}}},
        {"the root as a file", {{".", "x"}}},
        {"absolute link", {{"l", "/etc", sLink}}},
        {"link up behind a name", {{"a/b/l", "c/../../../x", sLink}}},
        {"file through a link", {{"d/", "", sDir}, {"l", "d", sLink}, {"l/evil", "x"}}},
        {"folder over a link", {{"d/", "", sDir}, {"l", "d", sLink}, {"l/", "", sDir}}},
        {"file over a link", {{"l", "t", sLink}, {"l", "evil"}}},
        {"file through a file", {{"f", "x"}, {"f/g", "evil"}}},
        {"file twice", {{"f", "x"}, {"f", "evil"}}},
        {"hard link inside", {{"f", "x"}, {"g", "f", sFile, true}}},
        {"named pipe", {{"p", "", S_IFIFO | 0644}}},
        {"device", {{"p", "", S_IFCHR | 0644}}},
        {"too deep", {{tDeep, "x"}}},
        {"too many bytes", {{"a", QByteArray(600, 'a')}, {"b", QByteArray(401, 'b')}}},
        {"too many entries", QList<TestEntry>(51, {"./", "", sDir})},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        const Failure tFailure = unpack(makeArchive(tCase.mEntries));
        EXPECT_EQ(tFailure.mKind, Kind::Content) << tFailure.mText;
        EXPECT_FALSE(tFailure.mText.isEmpty());
        EXPECT_EQ(QDir(mDir.path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                  QStringList({q("archive"), q("out")}));
        const QMap<QString, QByteArray> tTree = readTree(mFolder);
        EXPECT_EQ(std::count(tTree.begin(), tTree.end(), "evil"), 0);
    }
    EXPECT_FALSE(QFileInfo::exists(q("/tmp/evil-of-the-unpacker-test")));
}

TEST(EntryPathTest, LinksStayInside)
{
    for (const auto& [tTarget, tDepth] : {std::pair("a", 0),
                                          {"./a/.", 0},
                                          {"../..", 2},
                                          {".././../a", 2},
                                          {"..a/b", 0},
                                          {"...", 0},
                                          {"..//b", 1}}) {
        EXPECT_TRUE(linkStaysInside(tTarget, tDepth)) << tTarget;
    }
    for (const auto& [tTarget, tDepth] :
         {std::pair("..", 0), {"../..", 1}, {"a/..", 5}, {"", 1}, {"/", 1}, {"a/../b", 5}, {"./..", 0}}) {
        EXPECT_FALSE(linkStaysInside(tTarget, tDepth)) << tTarget;
    }
}

TEST_F(UnpackerTest, ReportsEveryFailedOperation)
{
    const QByteArray tArchive = makeArchive({{"d/", "", sDir}, {"d/f", "x"}, {"l", "d", sLink}});
    int tCount = 1;
    for (;; ++tCount) {
        mFileSystem.failAt(tCount, ENOSPC);
        const Failure tFailure = unpack(tArchive);
        if (!mFileSystem.hasFailed()) {
            EXPECT_FALSE(tFailure);
            break;
        }
        // A failure to close a folder, or a file that was only read, does not matter.
        if (mFileSystem.failed() != "close") {
            EXPECT_EQ(tFailure.mKind, Kind::NoSpace) << mFileSystem.failed().constData();
        }
    }
    EXPECT_GT(tCount, 12);
}
