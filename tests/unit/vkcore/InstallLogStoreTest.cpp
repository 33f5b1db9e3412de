#include "TestApplication.h"

#include "sqlite/InstallLogStore.h"

#include <gtest/gtest.h>

#include <limits>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace tarn::vkcore;

namespace {

QDateTime day(int pDay)
{
    return {QDate(2024, 3, pDay), QTime(12, 0)};
}

InstallLogStore::Record record(const char* pPackage, const char* pParent = nullptr)
{
    InstallLogStore::Record tRecord;
    tRecord.mPackage = QLatin1String(pPackage);
    tRecord.mParent = pParent == nullptr ? QString() : QString(QLatin1String(pParent));
    tRecord.mVersion = QStringLiteral("1.0.0.0");
    tRecord.mStatus = QStringLiteral("ok");
    tRecord.mTitle.setValue(QStringLiteral("en"), QLatin1String(pPackage));
    return tRecord;
}

class InstallLogStoreTest : public ::testing::Test
{
protected:
    void fill()
    {
        InstallLogStore tStore;
        ASSERT_TRUE(tStore.openForWriting(mPath)) << tStore.errorText().toStdString();
        ASSERT_TRUE(tStore.append(QStringLiteral("r3"), day(3), {record("d"), record("e", "d")}));
        ASSERT_TRUE(tStore.append(QStringLiteral("r1"), day(1), {record("a"), record("b", "a")}));
        ASSERT_TRUE(tStore.append(QStringLiteral("r2"), day(2), {record("c")}));
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
            tNames += tEntry->mName.bestValue(QStringLiteral("en")).toStdString();
        }
        return tNames;
    }

    QTemporaryDir mDir;
    QString mPath = mDir.filePath(QStringLiteral("install-log.db"));
};

constexpr int sAll = std::numeric_limits<int>::max();

} // namespace

TEST_F(InstallLogStoreTest, LimitsAndOrder)
{
    fill();
    const struct
    {
        const char* mName;
        QDateTime mFrom;
        QDateTime mTo;
        int mMaxCount;
        bool mTopLevelOnly;
        const char* mNames;
    } tCases[] = {
        {"all, oldest first, in the order of a run", {}, {}, sAll, false, "abcde"},
        {"top level", {}, {}, sAll, true, "acd"},
        {"from, included", day(2), {}, sAll, false, "cde"},
        {"just after", day(2).addMSecs(1), {}, sAll, false, "de"},
        {"to, included", {}, day(2), sAll, false, "abc"},
        {"from and to", day(2), day(2), sAll, false, "c"},
        {"to before from", day(3), day(1), sAll, false, ""},
        {"the newest two", {}, {}, 2, false, "de"},
        {"the newest two of the top level", {}, {}, 2, true, "cd"},
        {"none", {}, {}, 0, false, ""},
        {"a negative number", {}, {}, -1, false, ""},
        {"far future", day(2).addYears(5000), {}, sAll, false, ""},
        {"far past", QDateTime(QDate(-4000, 1, 1), QTime(0, 0)), {}, sAll, true, "acd"},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        EXPECT_EQ(names(tCase.mFrom, tCase.mTo, tCase.mMaxCount, tCase.mTopLevelOnly), tCase.mNames);
    }
}

TEST_F(InstallLogStoreTest, CarriesEveryField)
{
    InstallLogStore::Record tRecord = record("p");
    tRecord.mVersion = QStringLiteral("1.2.3.4");
    tRecord.mVersionDate = day(1);
    tRecord.mStatus = QStringLiteral("some other word");
    tRecord.mTitle.setValue(QStringLiteral("de"), QStringLiteral("\u00dcber \"alles\"\n\\"));
    tRecord.mReport.setValue(QStringLiteral("de"), QString(100000, QLatin1Char('x')));
    const QDateTime tDate = day(2).addMSecs(123);
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForWriting(mPath));
    ASSERT_TRUE(tStore.append(QStringLiteral("r"), tDate, {tRecord, record("q")}));
    QList<GRef2<InstLogEntry>> tEntries;
    ASSERT_TRUE(tStore.read(&tEntries, {}, {}, sAll, false));
    ASSERT_EQ(tEntries.size(), 2);
    EXPECT_EQ(tEntries[0]->mName, tRecord.mTitle);
    EXPECT_EQ(tEntries[0]->mVersion, Version(1, 2, 3, 4));
    EXPECT_EQ(tEntries[0]->mVersionDate, day(1));
    EXPECT_EQ(tEntries[0]->mDate, tDate);
    EXPECT_EQ(tEntries[0]->mStatus, tRecord.mStatus);
    EXPECT_EQ(tEntries[0]->mInstallReport, tRecord.mReport);
    EXPECT_FALSE(tEntries[1]->mVersionDate.isValid());
    EXPECT_TRUE(tEntries[1]->mInstallReport.isEmpty());
}

TEST_F(InstallLogStoreTest, ARunIsAddedOnce)
{
    fill();
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForWriting(mPath));
    EXPECT_TRUE(tStore.append(QStringLiteral("r2"), day(9), {record("x"), record("y")}));
    EXPECT_EQ(names({}, {}, sAll, false), "abcde");
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
    EXPECT_FALSE(tStore.append(QStringLiteral("r9"), day(9), {record("x")}));
    EXPECT_FALSE(tStore.errorText().isEmpty());
}

TEST_F(InstallLogStoreTest, DamageIsToldNotHidden)
{
    const struct
    {
        const char* mName;
        std::function<void(QByteArray&)> mHarm;
        bool mDamaged;
    } tCases[] = {
        {"no database", [](QByteArray& pBytes) { pBytes.fill('x'); }, true},
        {"cut", [](QByteArray& pBytes) { pBytes.truncate(pBytes.size() / 2); }, true},
        {"pages overwritten",
         [](QByteArray& pBytes) {
             pBytes.replace(4096, pBytes.size() - 4096, QByteArray(pBytes.size() - 4096, '\xff'));
         },
         true},
        {"of a later version", [](QByteArray& pBytes) { pBytes[63] = 77; }, false},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mName);
        QFile::remove(mPath);
        fill();
        QFile tFile(mPath);
        ASSERT_TRUE(tFile.open(QIODevice::ReadOnly));
        QByteArray tBytes = tFile.readAll();
        tFile.close();
        tCase.mHarm(tBytes);
        ASSERT_TRUE(writeFile(mPath, tBytes));
        InstallLogStore tStore;
        QList<GRef2<InstLogEntry>> tEntries;
        EXPECT_FALSE(tStore.openForReading(mPath) && tStore.read(&tEntries, {}, {}, sAll, false));
        EXPECT_FALSE(tStore.errorText().isEmpty());
        EXPECT_EQ(tStore.isDamaged(), tCase.mDamaged);
        EXPECT_TRUE(tEntries.isEmpty());
        EXPECT_FALSE(tStore.openForWriting(mPath) &&
                     tStore.append(QStringLiteral("n"), day(1), {record("n")}));
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
    ASSERT_EQ(::chmod(QFile::encodeName(mDir.path()).constData(), 0755), 0);
    const pid_t tChild = ::fork();
    if (tChild == 0) {
        const bool tOther = ::setgid(65534) == 0 && ::setuid(65534) == 0;
        InstallLogStore tStore;
        ::_exit(tOther && names({}, {}, sAll, true) == "acd" && !tStore.openForWriting(mPath) ? 0 : 1);
    }
    int tStatus = 0;
    ::waitpid(tChild, &tStatus, 0);
    EXPECT_EQ(tStatus, 0);
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
    ASSERT_TRUE(QFile::exists(mPath + QStringLiteral("-journal")));
    InstallLogStore tStore;
    ASSERT_TRUE(tStore.openForWriting(mPath)) << tStore.errorText().toStdString();
    EXPECT_EQ(names({}, {}, sAll, false), "abcde");
}
