#include "Test.h"

#include "trees/IndexReader.h"
#include "trees/IndexWriter.h"

using namespace tarn;
using namespace tarn::trees;

namespace {

const QByteArray sHash(64, 'a');
const QByteArray sFile = R"("kind":"file","size":5,"time":-1,"sha256":")" + sHash + '"';
const QByteArray sSound = R"({"format":1,"frames":1,"entries":4,"bytes":10}
{"packed":100,"unpacked":4096,"sha256":")" +
                          sHash + R"("}
{"path":"a","kind":"folder"}
{"path":"a/f",)" + sFile + R"(,"gap":512}
{"path":"a-g",)" + sFile + R"(,"executable":true,"gap":507}
{"path":"l","kind":"link","target":"a/f","later":1}
)";

class IndexTest : public testing::Test
{
protected:
    // How many entries come out, -1 for a refusal.
    int read(const QByteArray& pPublished)
    {
        const QString tPath = mDir.filePath(q("index"));
        writeFile(tPath, pPublished);
        IndexReader tReader(os::realFileSystem());
        mFailure = tReader.open(tPath, {.mMaxBytes = 1000, .mArchiveSize = 100, .mMaxDepth = 3});
        int tCount = 0;
        IndexEntry tEntry;
        while (!mFailure && tReader.next(&tEntry, &mFailure)) {
            ++tCount;
        }
        return mFailure ? -1 : tCount;
    }

    QTemporaryDir mDir;
    Failure mFailure;
};

} // namespace

TEST_F(IndexTest, RefusesWhatBreaksARule)
{
    ASSERT_EQ(read(packIndex(sSound)), 4) << mFailure.mText;
    const struct
    {
        const char* mWhat;
        QByteArray mFrom;
        QByteArray mTo;
    } tRows[] = {
        {"other format", "\"format\":1", "\"format\":2"},
        {"more frames than there are", "\"frames\":1", "\"frames\":2"},
        {"fewer frames", "\"frames\":1", "\"frames\":0"},
        {"too many entries", "\"entries\":4", "\"entries\":1000001"},
        {"entries missing", "\"entries\":4", "\"entries\":5"},
        {"goes on behind the last entry", "\"entries\":4", "\"entries\":3"},
        {"sizes that do not add up", "\"bytes\":10", "\"bytes\":11"},
        {"more bytes than announced", "\"bytes\":10", "\"bytes\":9"},
        {"more bytes than allowed", "\"bytes\":10", "\"bytes\":1001"},
        {"negative number", "\"bytes\":10", "\"bytes\":-1"},
        {"frames of another archive", "\"packed\":100", "\"packed\":99"},
        {"empty frame", "\"unpacked\":4096", "\"unpacked\":0"},
        {"frame without hash", "4096,\"sha256\":\"aa", "4096,\"sha256\":\"a"},
        {"bytes behind the archive", "\"gap\":507", "\"gap\":3575"},
        {"place that overflows", "\"gap\":507", "\"gap\":9223372036854775807"},
        {"size that overflows", "\"size\":5", "\"size\":9223372036854775807"},
        {"two files in the same bytes", "\"gap\":507", "\"gap\":-1"},
        {"leads out", "\"a-g\"", "\"../g\""},
        {"leads out later", "\"a-g\"", "\"a/../../g\""},
        {"absolute", "\"a-g\"", "\"/g\""},
        {"itself", "\"a-g\"", "\".\""},
        {"not in its shortest form", "\"a-g\"", "\"./a-g\""},
        {"trailing slash", "\"a-g\"", "\"a-g/\""},
        {"empty path", "\"a-g\"", "\"\""},
        {"null byte", "\"a-g\"", "\"a\\u0000g\""},
        {"half a character", "\"a-g\"", "\"a\\ud800\""},
        {"too deep", "\"path\":\"a-g\"", "\"path\":\"a/f/1/2/3/4\""},
        {"twice", "\"a-g\"", "\"a/f\""},
        {"not in order", "\"a-g\"", "\"A\""},
        {"not in order of names", "\"l\"", "\"a/z\""},
        {"file as folder", "\"a-g\"", "\"a/f/g\""},
        {"folder not listed", "\"a-g\"", "\"b/g\""},
        {"unknown kind", "\"folder\"", "\"device\""},
        {"link that leads out", "\"a/f\",\"later\"", "\"../a\",\"later\""},
        {"link that is absolute", "\"a/f\",\"later\"", "\"/etc\",\"later\""},
        {"link with a null byte", "\"target\":\"a/f\"", "\"target\":\"a\\u0000f\""},
        {"link without target", "\"target\":\"a/f\"", "\"target\":\"\""},
        {"flag that is no flag", "true", "1"},
        {"time that is no number", "-1", "\"-1\""},
        {"hash that is none", sHash + "\",\"gap\":512", "aa\",\"gap\":512"},
        {"no object", "{\"path\":\"a\",\"kind\":\"folder\"}", "[]"},
        {"line too long", "\"later\":1", "\"later\":\"" + QByteArray(70000, 'x') + '"'},
        {"last line without end", "1}\n", "1}"},
        {"nothing", sSound, ""},
    };
    for (const auto& tRow : tRows) {
        const qsizetype tAt = sSound.indexOf(tRow.mFrom);
        ASSERT_GE(tAt, 0) << tRow.mWhat;
        EXPECT_EQ(read(packIndex(QByteArray(sSound).replace(tAt, tRow.mFrom.size(), tRow.mTo))), -1)
            << tRow.mWhat;
        EXPECT_EQ(mFailure.mKind, Failure::Kind::Content) << tRow.mWhat;
    }
}

TEST_F(IndexTest, RefusesWhatIsNotPackedAsPublished)
{
    const QByteArray tPacked = packIndex(sSound);
    for (qsizetype tSize = 0; tSize < tPacked.size(); tSize += 7) {
        EXPECT_EQ(read(tPacked.first(tSize)), -1) << "cut off at " << tSize;
    }
    EXPECT_EQ(read(tPacked + "x"), -1);
    EXPECT_EQ(read(tPacked + packIndex("{}\n")), -1);
    EXPECT_EQ(read(sSound), -1);
    EXPECT_EQ(read(QByteArray(tPacked).replace(4, 2, "\x00\xf8")), -1) << "a window of 2 TiB";
}

TEST_F(IndexTest, ReadsWhatItWrites)
{
    std::vector<IndexEntry> tEntries(3);
    tEntries[0] = {"z", EntryKind::Link, "\xc3\xa4", false, 0, 0, {}, 0};
    tEntries[2] = {"\xc3\xa4/b", EntryKind::File, {}, true, -7, 3, {}, 9};
    tEntries[1].mPath = "\xc3\xa4";
    ASSERT_EQ(read(packIndex(indexText({{100, 12, {}}}, tEntries))), 3) << mFailure.mText;
    for (const IndexEntry& tEntry : tEntries) {
        EXPECT_EQ(entryFromLine(toLine(tEntry, 0), 0), tEntry);
    }
}

// A leading blank leaves the line to Qt.
TEST(IndexLineTest, MeansTheSameInAnyForm)
{
    const QByteArray tLines[] = {
        "{" + QByteArray(R"("path":"a/f",)") + sFile + R"(,"gap":512,"executable":false})",
        R"({"path":"l","kind":"link","target":"a/f","later":10,"kind":"link"})",
        R"({"size":9223372036854775807,"path":"a","kind":"folder","time":-0,"gap":01})",
    };
    const QByteArray tBytes = QByteArrayView("\"\\,:{}[]0-1.eat \x01\xc3\xa4").toByteArray();
    int tRead = 0;
    for (const QByteArray& tLine : tLines) {
        for (qsizetype tAt = 0; tAt <= tLine.size(); ++tAt) {
            for (const char tByte : tBytes) {
                for (const qsizetype tReplaced : {0, 1}) {
                    const QByteArray tOther = QByteArray(tLine).replace(tAt, tReplaced, QByteArray(1, tByte));
                    const auto tEntry = entryFromLine(tOther, 7);
                    EXPECT_EQ(tEntry, entryFromLine(' ' + tOther, 7)) << tOther.constData();
                    tRead += tEntry ? 1 : 0;
                }
            }
        }
    }
    EXPECT_GT(tRead, 100);
}
