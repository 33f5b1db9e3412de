#include "Test.h"
#include "TestApplication.h"

#include "sqlite/InstallLogStore.h"

#include <limits>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tarn::vkcore;

namespace {

QDateTime day(int pDay)
{
    return {QDate(2024, 3, pDay), QTime(12, 0)};
}

LogRecord record(const char* pPackage, const char* pParent = nullptr)
{
    LogRecord tRecord;
    tRecord.mPackage = q(pPackage);
    tRecord.mParent = pParent == nullptr ? QString() : QString(q(pParent));
    tRecord.mVersion = q("1.0.0.0");
    tRecord.mStatus = q("ok");
    tRecord.mTitle.setValue(q("en"), q(pPackage));
    return tRecord;
}

class InstallLogStoreTest : public ::testing::Test
{
protected:
    void fill()
    {
        InstallLogStore tStore;
        ASSERT_TRUE(tStore.openForWriting(mPath)) << tStore.errorText();
        ASSERT_TRUE(tStore.append(q("r3"), day(3), {record("d"), record("e", "d")}));
        ASSERT_TRUE(tStore.append(q("r1"), day(1), {record("a"), record("b", "a")}));
        ASSERT_TRUE(tStore.append(q("r2"), day(2), {record("c")}));
    }
    std::string names(const QDateTime& pFrom, const QDateTime& pTo, int pMaxCount, bool pTopLevelOnly)
    {
        InstallLogStore tStore;
        QList<GRef2<InstLogEntry>> tEntries;
        if (!tStore.openForReading(mPath) || !tStore.read(&tEntries, pFrom, pTo, pMaxCount, pTopLevelOnly)) {
            return "failed: " + tStore.errorText().toStdString();
        }
        std::string tNames;
        for (const auto& tEntry : tEntries) {
            tNames += tEntry->mName.bestValue(q("en")).toStdString();
        }
        return tNames;
    }

    // The result of pBody in a child process; if the test is root, as a user who may only read.
    template <typename T>
    std::string asAnotherUser(T pBody)
    {
        ::chmod(QFile::encodeName(mDir.path()).constData(), 0755);
        int tPipe[2];
        EXPECT_EQ(::pipe(tPipe), 0);
        const pid_t tChild = ::fork();
        if (tChild == 0) {
            const bool tOk = ::geteuid() != 0 || (::setgid(65534) == 0 && ::setuid(65534) == 0);
            const std::string tText = tOk ? pBody() : std::string();
            (void)!::write(tPipe[1], tText.data(), tText.size());
            ::_exit(0);
        }
        ::close(tPipe[1]);
        char tText[1000];
        const ssize_t tSize = ::read(tPipe[0], tText, sizeof tText);
        ::close(tPipe[0]);
        ::waitpid(tChild, nullptr, 0);
        return {tText, static_cast<size_t>(std::max<ssize_t>(0, tSize))};
    }

    QTemporaryDir mDir;
    QString mPath = mDir.filePath(q("install-log.db"));
};

constexpr int sAll = std::numeric_limits<int>::max();

} // namespace

TEST_F(InstallLogStoreTest, LimitsAndOrder)
{
    fill();
    const struct
    {
        QDateTime mFrom;
        QDateTime mTo;
        int mMaxCount;
        bool mTopLevelOnly;
        const char* mNames; // oldest first, in the order of a run
    } tCases[] = {
        {{}, {}, sAll, false, "abcde"},
        {{}, {}, sAll, true, "acd"},
        {day(2), {}, sAll, false, "cde"},
        {day(2).addMSecs(1), {}, sAll, false, "de"},
        {{}, day(2), sAll, false, "abc"},
        {day(3), day(1), sAll, false, ""},
        {{}, {}, 2, false, "de"},
        {{}, {}, 2, true, "cd"},
        {{}, {}, 0, false, ""},
        {{}, {}, -1, false, ""},
        {day(2).addYears(5000), {}, sAll, false, ""},
        {QDateTime(QDate(-4000, 1, 1), QTime(0, 0)), {}, sAll, true, "acd"},
    };
    for (const auto& tCase : tCases) {
        EXPECT_EQ(names(tCase.mFrom, tCase.mTo, tCase.mMaxCount, tCase.mTopLevelOnly), tCase.mNames);
    }
}

TEST_F(InstallLogStoreTest, ARunIsAddedOnce)
{
    fill();
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForWriting(mPath));
    EXPECT_TRUE(tStore.append(q("r2"), day(9), {record("x"), record("y")}));
    EXPECT_EQ(names({}, {}, sAll, false), "abcde");
}

// What a way back has put out of use is not the version that the next one replaces.
TEST_F(InstallLogStoreTest, AWayBackIsNoPreviousVersion)
{
    const struct
    {
        const char* mRun;
        const char* mVersion;
        const char* mStatus;
        const char* mPrevious;
    } tRuns[] = {{"r1", "1", "ok", ""},          {"r2", "2", "ok", "1"},
                 {"r3-back", "3", "error", "2"}, {"r4", "3", "ok", "2"},
                 {"r5", "3", "error", "3"}, // a repair that has failed
                 {"r6", "4", "ok", "3"},         {"r6-back", "4", "error", "4"},
                 {"r7", "5", "ok", ""},          {"r7-back", "5", "error", "5"}};
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForWriting(mPath));
    int tDay = 0;
    for (const auto& tRun : tRuns) {
        LogRecord tRecord = record("a");
        tRecord.mVersion = q(tRun.mVersion);
        tRecord.mStatus = q(tRun.mStatus);
        ASSERT_TRUE(tStore.append(q(tRun.mRun), day(++tDay), {tRecord}));
    }
    for (int tCount = 1; tCount <= tDay; ++tCount) {
        QList<LoggedRun> tRead;
        ASSERT_TRUE(tStore.readRuns(&tRead, tCount)) << tStore.errorText().toStdString();
        ASSERT_EQ(tRead.size(), tCount);
        for (int i = 0; i < tCount; ++i) {
            EXPECT_EQ(tRead[i].mPackages[0].mPrevious, q(tRuns[tDay - 1 - i].mPrevious))
                << tRuns[tDay - 1 - i].mRun << " of " << tCount;
        }
    }
    QHash<QString, QDateTime> tDates;
    ASSERT_TRUE(tStore.readDates(&tDates, {{q("a"), q("3")}, {q("b"), q("1")}}));
    EXPECT_EQ(tDates, (QHash<QString, QDateTime>{{q("a"), day(4)}}));
}

TEST_F(InstallLogStoreTest, LongReportsDoNotFillTheMemoryOfTheHistory)
{
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForWriting(mPath));
    LogRecord tRecord = record("a");
    tRecord.mReport.setValue(q("en"), QString(6 * 1024 * 1024, u'x'));
    for (const int tDay : {1, 2, 3}) {
        ASSERT_TRUE(tStore.append(QString::number(tDay), day(tDay), {tRecord}));
    }
    QList<LoggedRun> tRead;
    ASSERT_TRUE(tStore.readRuns(&tRead, 10));
    ASSERT_EQ(tRead.size(), 3);
    EXPECT_FALSE(tRead[1].mPackages[0].mReport.isEmpty());
    EXPECT_TRUE(tRead[2].mPackages[0].mReport.isEmpty());
    EXPECT_EQ(tRead[2].mPackages[0].mVersion, q("1.0.0.0"));
}

TEST_F(InstallLogStoreTest, ReadAppendsAndAMissingFileIsEmpty)
{
    EXPECT_EQ(names({}, {}, sAll, false), "");
    EXPECT_FALSE(QFile::exists(mPath));
    fill();
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForReading(mPath));
    QList<GRef2<InstLogEntry>> tEntries;
    ASSERT_TRUE(tStore.read(&tEntries, {}, {}, 1, false));
    ASSERT_TRUE(tStore.read(&tEntries, {}, {}, 1, false));
    EXPECT_EQ(tEntries.size(), 2);
    EXPECT_FALSE(tStore.append(q("r9"), day(9), {record("x")}));
    EXPECT_FALSE(tStore.errorText().isEmpty());
}

TEST_F(InstallLogStoreTest, DamageIsToldNotHidden)
{
    const struct
    {
        qsizetype mFrom;
        qsizetype mEnd; // 0 for that of the file
        char mByte;
        bool mDamaged;
    } tCases[] = {
        {0, 0, 'x', true}, {4096, 0, '\xff', true}, {63, 64, 77, false}}; // the last: of a later version
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mFrom);
        QFile::remove(mPath);
        fill();
        const qsizetype tEnd = tCase.mEnd == 0 ? QFileInfo(mPath).size() : tCase.mEnd;
        overwrite(mPath, tCase.mFrom, QByteArray(tEnd - tCase.mFrom, tCase.mByte));
        InstallLogStore tStore;
        QList<GRef2<InstLogEntry>> tEntries;
        EXPECT_FALSE(tStore.openForReading(mPath) && tStore.read(&tEntries, {}, {}, sAll, false));
        EXPECT_FALSE(tStore.errorText().isEmpty());
        EXPECT_EQ(tStore.isDamaged(), tCase.mDamaged);
        EXPECT_TRUE(tEntries.isEmpty());
        EXPECT_FALSE(tStore.openForWriting(mPath) && tStore.append(q("n"), day(1), {record("n")}));
        EXPECT_EQ(tStore.isDamaged(), tCase.mDamaged);
    }
}

TEST_F(InstallLogStoreTest, OthersReadButDoNotWrite)
{
    if (::geteuid() != 0) {
        GTEST_SKIP() << "needs root, to become another user";
    }
    ::umask(0077);
    fill();
    struct stat tStat
    {
    };
    ASSERT_EQ(::stat(QFile::encodeName(mPath).constData(), &tStat), 0);
    EXPECT_EQ(tStat.st_mode & 07777, 0644U);
    EXPECT_EQ(asAnotherUser([&] { return names({}, {}, sAll, true); }), "acd");
    EXPECT_EQ(asAnotherUser(
                  [&] { return std::string(InstallLogStore().openForWriting(mPath) ? "may" : "may not"); }),
              "may not");
}

// The owner of the folder may be a user whom the reader need not trust.
TEST_F(InstallLogStoreTest, AReaderCreatesNothingAndWaitsForNoPipe)
{
    fill();
    {
        Database tDatabase;
        ASSERT_TRUE(tDatabase.open(mPath, Database::Mode::ReadWrite));
        ASSERT_TRUE(tDatabase.execute("PRAGMA journal_mode = WAL"));
    }
    EXPECT_EQ(names({}, {}, sAll, false).rfind("failed", 0), 0U);
    EXPECT_EQ(QDir(mDir.path()).entryList(QDir::Files), QStringList{QFileInfo(mPath).fileName()});
    QFile::remove(mPath);
    ASSERT_EQ(::mkfifo(QFile::encodeName(mPath).constData(), 0644), 0);
    EXPECT_NE(names({}, {}, sAll, false).find("not a file"), std::string::npos);
}

TEST_F(InstallLogStoreTest, MigrationsGoStepByStepAndEachWholly)
{
    const char* const tSteps[] = {"CREATE TABLE a (x)", "CREATE TABLE b (x)",
                                  "CREATE TABLE c (x); INSERT INTO missing VALUES (1)"};
    const struct
    {
        size_t mSteps;
        bool mOk;
        int mVersion;
    } tCases[] = {{1, true, 1}, {2, true, 2}, {3, false, 2}, {2, true, 2}, {1, false, 2}};
    Database tDatabase;
    ASSERT_TRUE(tDatabase.open(mPath, Database::Mode::ReadWrite));
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mSteps);
        EXPECT_EQ(tDatabase.migrate(std::span(tSteps, tCase.mSteps)), tCase.mOk) << tDatabase.errorText();
        EXPECT_EQ(tDatabase.schemaVersion(), tCase.mVersion);
        EXPECT_EQ(tDatabase.execute("SELECT * FROM b"), tCase.mVersion == 2);
        EXPECT_FALSE(tDatabase.execute("SELECT * FROM c"));
    }
}

// Regression: opening the file a second time ended the locks of the first connection.
TEST_F(InstallLogStoreTest, ASecondConnectionLeavesTheFirstOnesLock)
{
    fill();
    Database tFirst;
    ASSERT_TRUE(tFirst.open(mPath, Database::Mode::ReadWrite));
    ASSERT_TRUE(tFirst.execute("BEGIN IMMEDIATE"));
    for (const auto tMode : {Database::Mode::ReadWrite, Database::Mode::ReadOnly}) {
        Database tSecond;
        EXPECT_TRUE(tSecond.open(mPath, tMode));
    }
    const std::string tOther = asAnotherUser([&] {
        struct flock tLock
        {
        };
        tLock.l_type = F_WRLCK;
        const int tFd = ::open(QFile::encodeName(mPath).constData(), O_RDONLY);
        ::fcntl(tFd, F_GETLK, &tLock);
        return std::string(tLock.l_type == F_UNLCK ? "free" : "locked");
    });
    EXPECT_EQ(tOther, "locked");
}

TEST_F(InstallLogStoreTest, AKilledWriterLeavesTheLogWhole)
{
    fill();
    const pid_t tChild = ::fork();
    if (tChild == 0) {
        Database tDatabase;
        tDatabase.open(mPath, Database::Mode::ReadWrite);
        // Spills changed pages into the file before the end of the transaction.
        tDatabase.execute("PRAGMA cache_size = 1");
        tDatabase.transaction([&] {
            for (int i = 0; i < 2000; ++i) {
                tDatabase.execute(
                    "INSERT INTO entry (date, package, version, status) VALUES (5, 'half', '1', 'ok')");
            }
            ::_exit(0);
            return true;
        });
    }
    ::waitpid(tChild, nullptr, 0);
    ASSERT_TRUE(QFile::exists(mPath + q("-journal")));
    // A reader sees the whole log or gives a reason, but never half of the change.
    const std::string tRead = asAnotherUser([&] { return names({}, {}, sAll, false); });
    EXPECT_TRUE(tRead == "abcde" || tRead.find("cut short") != std::string::npos) << tRead;
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForWriting(mPath)) << tStore.errorText();
    EXPECT_EQ(names({}, {}, sAll, false), "abcde");
}
