#include "FaultyVfs.h"
#include "StoreTest.h"

#include "store/ConfigVariables.h"
#include "store/HoldTable.h"
#include "store/ServerTable.h"
#include "store/Settings.h"

using namespace tarn::vkcore;
using namespace tarn::vkservice::store;

TEST_F(StoreTest, IsClosedToOthers)
{
    ASSERT_TRUE(Settings(mStore.database()).setDataDirectory(q("/data")));
    const QStringList tFiles = QDir(mDir.path()).entryList(QDir::Files);
    ASSERT_GE(tFiles.size(), 2) << "the write-ahead log holds the same secrets";
    for (const QString& tFile : tFiles) {
        EXPECT_EQ(QFile::permissions(mDir.filePath(tFile)) &
                      (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther),
                  QFile::Permissions())
            << tFile;
    }
}

TEST_F(StoreTest, DamagedOneIsSetAsideWholeAndAFreshOneBegun)
{
    ASSERT_TRUE(Settings(mStore.database()).setDataDirectory(q("/data")));
    const std::pair<qint64, QByteArray> tCases[] = {{0, QByteArray(100, 'x')}, // not a database
                                                    {4096, QByteArray(8192, '\xee')}};
    for (const auto& [tFrom, tBytes] : tCases) {
        mStore.database().close();
        overwrite(file(), tFrom, tBytes);
        const QByteArray tContent = readFile(file());
        reopen();
        EXPECT_EQ(Settings(mStore.database()).dataDirectory(), std::optional(QString()));
        EXPECT_TRUE(mStore.damagedFile().startsWith(file() + q(".damaged-")));
        EXPECT_EQ(readFile(mStore.damagedFile()), tContent);
    }
    EXPECT_EQ(QDir(mDir.path()).entryList({q("state.db.damaged-*")}).size(), 2) << "both are kept";
}

// Neither damaged, whatever else is wrong with it, nor usable by this service.
TEST_F(StoreTest, OneThatIsNotOursIsRefusedAndLeftAlone)
{
    const std::pair<const char*, const char*> tCases[] = {{"DROP TABLE servers", "no such table: servers"},
                                                          {"PRAGMA user_version = 1000", "newer version"},
                                                          {"PRAGMA user_version = 0", "no version"}};
    for (const auto& [tChange, tReason] : tCases) {
        SCOPED_TRACE(tChange);
        ASSERT_TRUE(mStore.database().execute("PRAGMA wal_checkpoint; BEGIN"));
        ASSERT_TRUE(mStore.database().execute(tChange));
        ASSERT_TRUE(mStore.database().execute("COMMIT"));
        mStore.database().close();
        const QByteArray tContent = readFile(file());
        const tarn::Failure tFailure = mStore.open(mDir.path());
        EXPECT_TRUE(tFailure.mText.contains(q(tReason))) << tFailure.mText;
        mStore.database().close();
        EXPECT_EQ(readFile(file()), tContent);
        EXPECT_EQ(QDir(mDir.path()).entryList(QDir::Files), QStringList(q("state.db")));
        ASSERT_TRUE(QFile::remove(file()));
        reopen();
    }
}

// Every operation of opening a store fails once, with each code that does not mean damage.
TEST_F(StoreTest, AFaultOfTheMomentLeavesASoundOneAlone)
{
    ASSERT_TRUE(Settings(mStore.database()).setDataDirectory(q("/data")));
    mStore.database().close();
    const QByteArray tContent = readFile(file());
    FaultyVfs tVfs;
    int tRefused = 0;
    for (const int tCode : {SQLITE_IOERR_READ, SQLITE_IOERR_CORRUPTFS, SQLITE_NOMEM, SQLITE_CANTOPEN}) {
        for (int tOperation = 1;; ++tOperation) {
            SCOPED_TRACE(testing::Message() << "operation " << tOperation << ", code " << tCode);
            tVfs.failAt(tOperation, tCode);
            const tarn::Failure tFailure = mStore.open(mDir.path());
            const bool tOpened = !tFailure;
            const bool tFailed = tVfs.hasFailed();
            tVfs.failAt(0, 0);
            tRefused += tOpened ? 0 : 1;
            EXPECT_NE(tOpened, tFailure.mText.contains(q("was not changed"))) << tFailure.mText;
            EXPECT_TRUE(!tOpened || Settings(mStore.database()).dataDirectory() == q("/data"));
            mStore.database().close();
            ASSERT_EQ(QDir(mDir.path()).entryList(QDir::Files), QStringList(q("state.db")));
            ASSERT_EQ(readFile(file()), tContent);
            if (!tFailed) {
                break;
            }
        }
    }
    EXPECT_GT(tRefused, 40);
}

TEST_F(StoreTest, OneOfVersionOneKeepsAllItsValues)
{
    mStore.database().close();
    ASSERT_TRUE(QFile::remove(file()));
    ASSERT_TRUE(mStore.database().open(file(), Database::Mode::ReadWrite));
    ASSERT_TRUE(mStore.database().execute(readFile(q(VERSION_1)).constData()));
    reopen();
    EXPECT_EQ(mStore.database().schemaVersion(), StateStore::sSchemaVersion);
    const Settings tSettings(mStore.database());
    const auto tProxy = tSettings.proxy();
    EXPECT_EQ(tProxy->mMode, NetProxyModeManual);
    EXPECT_EQ(tProxy->mProxy.mHost + tProxy->mProxy.mUser + tProxy->mProxy.mPassword,
              q("proxy.example.compsecret three"));
    EXPECT_EQ(tSettings.dataDirectory(), q("/srv/d\u00e4t\u00e4"));
    EXPECT_EQ(*tSettings.appLanguage() + *tSettings.dataLanguage(), q("defr"));
    EXPECT_EQ(tSettings.schedule()->mNextCheck, QDateTime({2199, 1, 2}, {3, 4, 5}));
    EXPECT_EQ(tSettings.schedule()->mPeriodCount, 2);
    EXPECT_EQ(tSettings.monitoring()->notificationEmailAddresses().value(0).mAddress, q("a@example.com"));
    EXPECT_EQ(tSettings.lastRun()->mCode, 3);
    EXPECT_EQ(tSettings.lastRun()->mFinished, QDateTime({2026, 11, 25}, {9, 48, 32}));
    const auto tServers = ServerTable(mStore.database()).entries();
    ASSERT_EQ(tServers->size(), 2);
    EXPECT_EQ(tServers->at(0).mUri + *tServers->at(0).mPassword,
              q("https://updates.example.com/stablesecret one"));
    EXPECT_EQ(tServers->at(1).mName + *tServers->at(1).mPassword, q("secondsecret two"));
    EXPECT_EQ(ConfigVariables(mStore.database()).value(q("own.variable")), q("it's \"quoted\""));
    EXPECT_EQ(HoldTable(mStore.database()).entries()->size(), 0) << "the table is new";
}

TEST_F(StoreTest, HealthyOneThatFailsIsNotReplaced)
{
    Settings tSettings(mStore.database());
    ASSERT_TRUE(mStore.database().execute("PRAGMA query_only = ON"));
    EXPECT_FALSE(tSettings.setDataDirectory(q("/data")));
    EXPECT_FALSE(mStore.isDamaged());
}
