#include "FaultyFileSystem.h"
#include "Test.h"

#include "deltas/DeltaMaker.h"
#include "deltas/Difference.h"
#include "trees/DeltaReader.h"
#include "trees/IndexText.h"
#include "trees/IndexWriter.h"
#include "trees/Patch.h"
#include "tuf/Hashes.h"

#include <QtCore/QRandomGenerator>

#include <functional>
#include <limits>
#include <zstd.h>

using namespace tarn;
using namespace tarn::trees;
using vkpublish::PackageVersion;

namespace {

constexpr qint64 sAnySize = std::numeric_limits<qint64>::max();

using Files = QMap<QByteArray, QByteArray>;

QByteArray noise(qsizetype pSize, quint32 pSeed = 1)
{
    QByteArray tBytes((pSize + 3) / 4 * 4, '\0');
    QRandomGenerator(pSeed).fillRange(reinterpret_cast<quint32*>(tBytes.data()), tBytes.size() / 4);
    return tBytes.first(pSize);
}

QByteArray quicklyPacked(const QByteArray& pBytes)
{
    const auto tSize = static_cast<size_t>(pBytes.size());
    QByteArray tPacked(static_cast<qsizetype>(ZSTD_compressBound(tSize)), '\0');
    tPacked.resize(static_cast<qsizetype>(
        ZSTD_compress(tPacked.data(), static_cast<size_t>(tPacked.size()), pBytes.constData(), tSize, 1)));
    return tPacked;
}

class DeltaTest : public testing::Test
{
protected:
    std::unique_ptr<PackageVersion> version(const QString& pName, const Files& pFiles)
    {
        const auto tHashOf = [](const QByteArray& pBytes) {
            return *tuf::Hash::fromHex(q(tuf::sha256(pBytes)));
        };
        std::vector<IndexEntry> tEntries;
        std::vector<Frame> tFrames;
        QByteArray tArchive; // a frame for each file
        qint64 tAt = 0;
        for (auto tFile = pFiles.begin(); tFile != pFiles.end(); ++tFile) {
            const qint64 tSize = tFile->size();
            tEntries.push_back({tFile.key(), EntryKind::File, {}, false, 0, tSize, tHashOf(*tFile), tAt + 3});
            const QByteArray tPacked = quicklyPacked("tar" + *tFile);
            tFrames.push_back({tPacked.size(), tSize + 3, tHashOf(tPacked)});
            tArchive += tPacked;
            tAt += tSize + 3;
        }
        writeFile(mDir.filePath(pName + q(".index")), packIndex(indexText(tFrames, tEntries)));
        writeFile(mDir.filePath(pName), tArchive);
        return open(os::realFileSystem(), pName);
    }

    std::unique_ptr<PackageVersion> open(os::FileSystem& pFileSystem, const QString& pName,
                                         Failure* pFailure = nullptr)
    {
        const IndexLimits tLimits{.mMaxBytes = 10'000'000,
                                  .mArchiveSize = QFileInfo(mDir.filePath(pName)).size()};
        auto tVersion = std::make_unique<PackageVersion>(pFileSystem);
        const Failure tFailure = tVersion->open(mDir.filePath(pName + q(".index")), mDir.filePath(pName),
                                                tLimits, mDir.filePath(pName + q(".scratch")));
        EXPECT_TRUE(pFailure != nullptr || !tFailure) << tFailure.mText;
        if (pFailure != nullptr) {
            *pFailure = tFailure;
        }
        return tVersion;
    }

    QByteArray make(PackageVersion& pOld, PackageVersion& pNew, int pThreads)
    {
        vkpublish::DeltaResult tResult;
        const Failure tFailure =
            makeDelta(os::realFileSystem(), pOld, pNew, pThreads, sAnySize, deltaPath(), &tResult);
        EXPECT_FALSE(tFailure) << tFailure.mText;
        const QByteArray tBytes = readFile(deltaPath());
        EXPECT_EQ(tResult.mLength, tBytes.size());
        EXPECT_EQ(tResult.mHash.toHex(), tuf::sha256(tBytes));
        return tBytes;
    }

    // What the delta makes: the text of the index under an empty name, and the files.
    Files apply(const PackageVersion& pOld, PackageVersion& pNew)
    {
        EXPECT_FALSE(pNew.readEntries());
        const QByteArray tDelta = readFile(deltaPath());
        DeltaReader tReader(os::realFileSystem());
        Failure tFailure = tReader.open(deltaPath(), tDelta.size());
        Files tMade;
        Segment tSegment;
        while (!tFailure && tReader.next(&tSegment, &tFailure)) {
            QByteArray tBase;
            for (const Piece& tPiece : tSegment.mFrom) {
                EXPECT_FALSE(pOld.read(tPiece, &tBase));
            }
            QByteArray tBytes;
            tFailure = applySegment(tSegment, tBase,
                                    tDelta.mid(tSegment.mPacked.mFirst, tSegment.mPacked.mLength), &tBytes);
            for (const Piece& tPiece : tSegment.mMakes) {
                tMade[tPiece.mEntry == 0
                          ? QByteArray()
                          : pNew.tree().path(pNew.tree().at(static_cast<size_t>(tPiece.mEntry - 1)))] +=
                    tBytes.first(tPiece.mBytes.mLength);
                tBytes.remove(0, tPiece.mBytes.mLength);
            }
            if (tMade[QByteArray()].size() == tReader.header().mNew.mLength) {
                tReader.setEntries(pOld.sizes(), pNew.sizes());
            }
        }
        EXPECT_FALSE(tFailure) << tFailure.mText;
        EXPECT_EQ(tuf::sha256(tMade.take(QByteArray())), pNew.index().mHash.toHex());
        return tMade;
    }

    QString deltaPath() const { return mDir.filePath(q("delta")); }

    QTemporaryDir mDir;
};

} // namespace

TEST_F(DeltaTest, MakesTheNewFilesOfTheOldOnes)
{
    const QByteArray tLarge = noise(2'200'000);
    const QByteArray tSmall = noise(20'000);
    const QByteArray tOther = noise(20'000, 2);
    QByteArray tCode = tLarge; // addresses that have moved
    for (qsizetype i = 0; i < tCode.size(); i += 40) {
        tCode[i] = static_cast<char>(tCode[i] + 3);
    }
    const struct
    {
        const char* mWhat;
        Files mOld;
        Files mNew;
        QByteArrayList mListed;
        qsizetype mMaxLength;
    } tRows[] = {
        {"the same", {{"f", tSmall}}, {{"f", tSmall}}, {}, 500},
        {"in place",
         {{"f", tLarge}},
         {{"f", QByteArray(tLarge).replace(1'000'000, 9, "123456789")}},
         {"f"},
         1500},
        {"everywhere", {{"f", tLarge}}, {{"f", tCode}}, {"f"}, 60'000},
        {"inserted", {{"f", tLarge}}, {{"f", noise(90'000, 3) + tLarge}}, {"f"}, 92'000},
        {"deleted", {{"f", tLarge}}, {{"f", tLarge.mid(50'000)}}, {"f"}, 1500},
        {"moved within", {{"f", tSmall + tOther}}, {{"f", tOther + tSmall}}, {"f"}, 700},
        {"grown", {{"f", tSmall}}, {{"f", tSmall + tOther}}, {"f"}, 21'000},
        {"emptied", {{"f", tSmall}}, {{"f", ""}}, {}, 500},
        {"was empty", {{"f", ""}}, {{"f", "now"}}, {"f"}, 500},
        {"one byte", {{"f", "1"}}, {{"f", "2"}}, {"f"}, 500},
        {"moved", {{"old-f", tSmall}}, {{"new-f", tSmall}}, {}, 500},
        {"other version in its name",
         {{"lib-1.9.so", tSmall}},
         {{"lib-1.10.so", tSmall + "x"}},
         {"lib-1.10.so"},
         700},
        {"other name", {{"old.db", tSmall}, {"g", tOther}}, {{"new.db", tSmall + "x"}}, {"new.db"}, 700},
        {"without a counterpart", {{"f", tSmall}}, {{"f", tSmall}, {"g", tOther}}, {"g"}, 21'000},
        {"twice", {}, {{"a", tSmall}, {"b", tSmall}}, {"a"}, 21'000},
        {"many",
         {{"a", tSmall}, {"b", tOther}},
         {{"a", tSmall + "x"}, {"b", "x" + tOther}, {"c", tSmall + tOther}},
         {"a", "b", "c"},
         41'000},
    };
    for (const auto& tRow : tRows) {
        SCOPED_TRACE(tRow.mWhat);
        const auto tOld = version(q("old"), tRow.mOld);
        const auto tNew = version(q("new"), tRow.mNew);
        const QByteArray tDelta = make(*tOld, *tNew, 1);
        EXPECT_LE(tDelta.size(), tRow.mMaxLength);
        const Files tMade = apply(*tOld, *tNew);
        EXPECT_EQ(tMade.keys(), tRow.mListed);
        for (auto tFile = tMade.begin(); tFile != tMade.end(); ++tFile) {
            EXPECT_TRUE(tFile.value() == tRow.mNew[tFile.key()]) << tFile.key();
        }
        EXPECT_TRUE(make(*tOld, *tNew, 3) == tDelta) << "depends on the threads";
        EXPECT_FALSE(QFile::exists(deltaPath() + q(".segments")));
    }
}

TEST_F(DeltaTest, ReadsOnlyTheFramesThatItNeeds)
{
    const Files tOld{{"a", noise(9000)}, {"f", noise(9000, 2)}, {"z", noise(9000, 3)}};
    Files tNew = tOld;
    tNew["f"] += "new";
    const QByteArray tGood = make(*version(q("old"), tOld), *version(q("new"), tNew), 1);
    for (const QString& tName : {q("old"), q("new")}) {
        const QByteArray tArchive = readFile(mDir.filePath(tName));
        const qsizetype tSize = tArchive.size();
        for (const qsizetype tAt : {tSize / 6, tSize / 2, tSize - 1}) {
            SCOPED_TRACE(testing::Message() << tName.toStdString() << " damaged at " << tAt);
            writeFile(mDir.filePath(tName),
                      QByteArray(tArchive).replace(tAt, 1, QByteArray(1, ~tArchive[tAt])));
            vkpublish::DeltaResult tResult;
            const Failure tFailure =
                makeDelta(os::realFileSystem(), *open(os::realFileSystem(), q("old")),
                          *open(os::realFileSystem(), q("new")), 1, sAnySize, deltaPath(), &tResult);
            EXPECT_EQ(tFailure.mKind, tAt == tSize / 2 ? Failure::Kind::Content : Failure::Kind::None);
            EXPECT_EQ(tFailure.mText.contains(mDir.filePath(tName) + q(" is damaged: its frame 2 of 3")),
                      tAt == tSize / 2)
                << tFailure.mText;
            EXPECT_EQ(QFile::exists(deltaPath()) && readFile(deltaPath()) == tGood, tAt != tSize / 2);
        }
        writeFile(mDir.filePath(tName), tArchive);
    }
    // A sound frame, but another file than the index tells.
    const auto tVersion = version(q("old"), {{"a", "one"}, {"b", "two"}});
    const QString tIndex = mDir.filePath(q("old.index"));
    QByteArray tText;
    ASSERT_TRUE(nameOfIndex(os::realFileSystem(), tIndex, [&](const QByteArray& pPart) {
        tText += pPart;
        return Failure();
    }));
    writeFile(tIndex, packIndex(tText.replace(tuf::sha256("one"), tuf::sha256("two"))));
    QDir(mDir.filePath(q("old.scratch"))).removeRecursively();
    const auto tOther = open(os::realFileSystem(), q("old"));
    ASSERT_FALSE(tOther->readEntries());
    const Failure tFailure = tOther->layOpen({1});
    EXPECT_TRUE(tFailure.mText.contains(q("a in "))) << tFailure.mText;
}

TEST_F(DeltaTest, LeavesNothingWhenTheDiskFails)
{
    const auto tNew = version(q("new"), {{"f", "contents"}, {"g", noise(100)}});
    const QByteArray tGood = make(*version(q("old"), {{"f", "content"}}), *tNew, 1);
    QFile::remove(deltaPath());
    bool tFailed = true;
    for (int i = 1; tFailed; ++i) {
        FaultyFileSystem tFileSystem;
        tFileSystem.failAt(i, ENOSPC);
        Failure tFailure;
        {
            const auto tOld = open(tFileSystem, q("old"), &tFailure);
            vkpublish::DeltaResult tResult;
            tFailure = tFailure ? tFailure
                                : makeDelta(tFileSystem, *tOld, *tNew, 2, sAnySize, deltaPath(), &tResult);
        }
        tFailed = tFileSystem.hasFailed();
        EXPECT_TRUE(tFailure ? !QFile::exists(deltaPath()) : readFile(deltaPath()) == tGood)
            << tFileSystem.failed();
        EXPECT_TRUE(!tFailure || tFailure.mKind == Failure::Kind::NoSpace) << tFailure.mText;
        QFile::remove(deltaPath());
        QFile::remove(deltaPath() + q(".segments")); // where its removal failed
        QDir(mDir.filePath(q("old.scratch"))).removeRecursively();
        ASSERT_LT(i, 200);
    }
    ASSERT_TRUE(QDir().mkpath(deltaPath()));
    vkpublish::DeltaResult tResult;
    const Failure tFailure =
        makeDelta(os::realFileSystem(), *tNew, *tNew, 1, sAnySize, deltaPath(), &tResult);
    EXPECT_TRUE(tFailure.mText.contains(deltaPath())) << tFailure.mText;
    EXPECT_FALSE(QFile::exists(deltaPath() + q(".segments")));
}

TEST_F(DeltaTest, IsGivenUpEarlyWhereNothingIsTheSame)
{
    const auto tOld = version(q("old"), {{"f", noise(200'000)}, {"g", noise(100'000, 2)}});
    const auto tNew = version(q("new"), {{"f", noise(200'000, 3)}, {"g", noise(100'000, 2)}});
    vkpublish::DeltaResult tResult;
    EXPECT_FALSE(makeDelta(os::realFileSystem(), *tOld, *tNew, 1, 190'000, deltaPath(), &tResult));
    EXPECT_EQ(tResult.mLength, 0);
    EXPECT_EQ(QDir(mDir.path()).entryList({q("delta*")}).size(), 0);
    EXPECT_LT(make(*tOld, *tNew, 1).size(), 201'000);
}

TEST_F(DeltaTest, DiffersInBytesOfAllKinds)
{
    const QByteArray tZeros(100'000, '\0');
    const QByteArray tText = noise(300);
    const QByteArray tOnes(3000, '\xff');
    const QList<QByteArray> tTexts{
        "", "a", "ab", tZeros, tOnes, tText, tText + tZeros, tZeros + tText, tText.mid(9) + tOnes + tText};
    for (const QByteArray& tBase : tTexts) {
        for (const QByteArray& tNew : tTexts) {
            const auto tDifference = vkpublish::difference(tBase, tNew);
            const QByteArray tPacked = packIndex(tDifference.mControl) + packIndex(tDifference.mDifference) +
                                       packIndex(tDifference.mExtra);
            QByteArray tMade;
            EXPECT_FALSE(
                applySegment({PatchMethod::Bsdiff, {}, {{1, {0, tNew.size()}}}, {{1, {0, tBase.size()}}}},
                             tBase, tPacked, &tMade));
            EXPECT_TRUE(tMade == tNew);
        }
    }
}

TEST_F(DeltaTest, RefusesAHeaderThatBreaksARule)
{
    const QByteArray tHash(64, 'b');
    const QByteArray tSound = R"({"format":1,"new":")" + tHash + R"(","newBytes":3,"old":")" + tHash +
                              R"(","oldBytes":2,"packed":60,"segments":4}
{"from":[[0]],"makes":[[0]],"method":"zstd","packed":10}
{"from":[[1],[3,4,6]],"makes":[[1],[3,0,4]],"method":"bsdiff","packed":20}
{"from":[],"makes":[[3,4,4]],"method":"plain","packed":10}
{"from":[[3]],"makes":[[3,8,2],[4]],"method":"zstd","packed":20}
)";
    const auto tRead = [this](const QByteArray& pFile) {
        writeFile(deltaPath(), pFile);
        DeltaReader tReader(os::realFileSystem());
        Failure tFailure = tReader.open(deltaPath(), pFile.size());
        Segment tSegment;
        int tCount = 0;
        constexpr qint64 sHuge = qint64(1) << 40;
        while (!tFailure && tReader.next(&tSegment, &tFailure)) {
            if (++tCount == 1) {
                tReader.setEntries({2, 5, -1, 10, sHuge}, {3, 7, -1, 10, 1, 0, sHuge});
            }
        }
        return tFailure.mKind;
    };
    const QByteArray tPacked(60, 'p');
    ASSERT_EQ(tRead(packIndex(tSound) + tPacked), Failure::Kind::None);
    const struct
    {
        const char* mWhat;
        const char* mFrom;
        const char* mTo;
    } tRows[] = {
        {"other format", "\"format\":1", "\"format\":2"},
        {"hash that is none", "\"new\":\"b", "\"new\":\"x"},
        {"endless index", "\"newBytes\":3", "\"newBytes\":4294967297"},
        {"longer than the file", "\"packed\":60", "\"packed\":6000"},
        {"shorter than its segments", "\"packed\":60", "\"packed\":59"},
        {"longer than its segments", "\"packed\":60", "\"packed\":61"},
        {"no segments", "\"segments\":4", "\"segments\":0"},
        {"fewer segments", "\"segments\":4", "\"segments\":3"},
        {"more segments", "\"segments\":4", "\"segments\":5"},
        {"unknown method", "bsdiff", "other"},
        {"no packed bytes", "\"packed\":10", "\"packed\":0"},
        {"lengths that overflow", "\"packed\":10", "\"packed\":9223372036854775807"},
        {"index not complete", "\"makes\":[[0]]", "\"makes\":[[0,0,2]]"},
        {"index of files", "\"from\":[[0]]", "\"from\":[[1]]"},
        {"files of the index", "\"from\":[[1],", "\"from\":[[0],"},
        {"index and file in one", "\"makes\":[[0]]", "\"makes\":[[0],[1]]"},
        {"index is not first", "\"makes\":[[0]]", "\"makes\":[[1]]"},
        {"nothing is made", "\"makes\":[[3,4,4]]", "\"makes\":[]"},
        {"file that is not listed", "[4]]", "[7]]"},
        {"negative number", "[4]]", "[-1]]"},
        {"folder", "[4]]", "[2]]"},
        {"empty file", "[4]]", "[5]]"},
        {"more than a segment may make", "[4]]", "[6,0,8388607]]"},
        {"old file that is not listed", "\"from\":[[3]]", "\"from\":[[5]]"},
        {"old folder", "\"from\":[[3]]", "\"from\":[[2]]"},
        {"base behind its file", "[3,4,6]", "[3,4,7]"},
        {"base that overflows", "[3,4,6]", "[3,4,9223372036854775807]"},
        {"negative base", "[3,4,6]", "[3,-1,6]"},
        {"empty base", "[3,4,6]", "[3,4,0]"},
        {"huge base", "[3,4,6]", "[4,0,16777217]"},
        {"piece of two numbers", "[3,4,6]", "[3,4]"},
        {"piece that is none", "[3,4,6]", "3"},
        {"gap", "[3,4,4]", "[3,5,3]"},
        {"overlap", "[3,4,4]", "[3,3,5]"},
        {"twice", "[3,4,4]", "[1]"},
        {"file not complete", "[3,8,2]", "[3,8,1]"},
        {"backwards", "[3,8,2],[4]", "[3,8,2],[3]"},
        {"last file not complete", ",[4]]", ",[6,0,5]]"},
    };
    for (const auto& tRow : tRows) {
        const qsizetype tAt = tSound.indexOf(tRow.mFrom);
        ASSERT_GE(tAt, 0) << tRow.mWhat;
        EXPECT_EQ(tRead(packIndex(QByteArray(tSound).replace(tAt, qstrlen(tRow.mFrom), tRow.mTo)) + tPacked),
                  Failure::Kind::Content)
            << tRow.mWhat;
    }
    EXPECT_EQ(tRead(packIndex(tSound) + "x" + tPacked), Failure::Kind::Content);
    EXPECT_EQ(tRead(packIndex(tSound).chopped(9)), Failure::Kind::Content);
    const QByteArray tMany = "[" + QByteArray("[1],").repeated(1000) + "[1]]";
    EXPECT_EQ(tRead(packIndex(QByteArray(tSound).replace("[[3]]", tMany)) + tPacked), Failure::Kind::Content);
}

TEST_F(DeltaTest, RefusesASegmentThatMakesSomethingElse)
{
    const auto tApply = [](PatchMethod pMethod, const QByteArray& pPacked, const QByteArray& pBase = "base") {
        QByteArray tMade;
        return applySegment({pMethod, {}, {{1, {0, 6}}}, {{1, {0, 4}}}}, pBase, pPacked, &tMade).mKind;
    };
    const auto tSteps = [](const std::vector<PatchStep>& pSteps, qsizetype pDifference, qsizetype pExtra) {
        QByteArray tControl;
        for (const PatchStep& tStep : pSteps) {
            appendStep(tStep, &tControl);
        }
        return packIndex(tControl) + packIndex(QByteArray(pDifference, 'd')) +
               packIndex(QByteArray(pExtra, 'e'));
    };
    constexpr auto sNone = Failure::Kind::None;
    constexpr qint64 sMost = std::numeric_limits<qint64>::max();
    const QByteArray tSound = tSteps({{1, 3, 1}, {-4, 2, 0}}, 5, 1);
    ASSERT_EQ(tApply(PatchMethod::Bsdiff, tSound), sNone);
    ASSERT_EQ(tApply(PatchMethod::Plain, packIndex("123456")), sNone);
    const struct
    {
        const char* mWhat;
        PatchMethod mMethod;
        QByteArray mPacked;
    } tRows[] = {
        {"nothing", PatchMethod::Plain, ""},
        {"no frame", PatchMethod::Plain, "123456"},
        {"too short", PatchMethod::Plain, packIndex("12345")},
        {"too long", PatchMethod::Zstd, packIndex("1234567")},
        {"a bomb", PatchMethod::Zstd, packIndex(QByteArray(10'000'000, '0'))},
        {"more behind it", PatchMethod::Plain, packIndex("123456") + "x"},
        {"cut off", PatchMethod::Plain, packIndex("123456").chopped(1)},
        {"one stream missing", PatchMethod::Bsdiff, packIndex("") + packIndex("123456")},
        {"more behind the streams", PatchMethod::Bsdiff, tSound + packIndex("")},
        {"before the base", PatchMethod::Bsdiff, tSteps({{-1, 3, 3}}, 3, 3)},
        {"behind the base", PatchMethod::Bsdiff, tSteps({{2, 3, 3}}, 3, 3)},
        {"far behind the base", PatchMethod::Bsdiff, tSteps({{sMost / 2, 0, 6}}, 0, 6)},
        {"more than the difference", PatchMethod::Bsdiff, tSteps({{0, 4, 2}}, 3, 2)},
        {"more than the extra", PatchMethod::Bsdiff, tSteps({{0, 3, 3}}, 3, 2)},
        {"endless", PatchMethod::Bsdiff, tSteps({{0, sMost, sMost}}, 3, 3)},
        {"difference that is left", PatchMethod::Bsdiff, tSteps({{0, 3, 2}}, 4, 2)},
        {"extra that is left", PatchMethod::Bsdiff, tSteps({{0, 3, 2}}, 3, 3)},
        {"step that is cut off", PatchMethod::Bsdiff,
         packIndex("\x02\x03") + packIndex("123") + packIndex("456")},
        {"number without end", PatchMethod::Bsdiff,
         packIndex(QByteArray(30, '\xff')) + packIndex("123") + packIndex("456")},
    };
    for (const auto& tRow : tRows) {
        EXPECT_EQ(tApply(tRow.mMethod, tRow.mPacked), Failure::Kind::Content) << tRow.mWhat;
    }
    EXPECT_NE(tApply(PatchMethod::Bsdiff, tSound, "base that is longer"), sNone);
}
