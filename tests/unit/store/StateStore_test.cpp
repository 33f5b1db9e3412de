#include "StoreTest.h"

#include "store/Settings.h"

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
    const struct
    {
        const char* mWhat;
        qint64 mFrom;
        QByteArray mBytes;
    } tCases[] = {
        {"no database at all", 0, QByteArray(100, 'x')},
        {"pages full of noise", 4096, QByteArray(8192, '\xee')},
    };
    for (const auto& tCase : tCases) {
        SCOPED_TRACE(tCase.mWhat);
        mStore.database().close();
        overwrite(file(), tCase.mFrom, tCase.mBytes);
        const QByteArray tContent = readFile(file());

        QString tError;
        ASSERT_TRUE(mStore.open(mDir.path(), &tError)) << tError;
        EXPECT_EQ(Settings(mStore.database()).dataDirectory(), std::optional(QString()));
        EXPECT_TRUE(mStore.damagedFile().startsWith(file() + q(".damaged-")));
        EXPECT_EQ(readFile(mStore.damagedFile()), tContent);
        ASSERT_TRUE(QFile::remove(mStore.damagedFile()));
    }
}

TEST_F(StoreTest, DatabaseWithoutItsTablesIsDamaged)
{
    ASSERT_TRUE(mStore.database().execute("DROP TABLE servers"));
    reopen();
    EXPECT_FALSE(mStore.damagedFile().isNull());
}

TEST_F(StoreTest, TwoDamagedOnesAreBothKept)
{
    for (int i = 0; i < 2; ++i) {
        mStore.database().close();
        overwrite(file(), 0, QByteArray(100, 'x'));
        reopen();
    }
    EXPECT_EQ(QDir(mDir.path()).entryList({q("state.db.damaged-*")}).size(), 2);
}

TEST_F(StoreTest, HealthyOneThatFailsIsNotReplaced)
{
    Settings tSettings(mStore.database());
    ASSERT_TRUE(mStore.database().execute("PRAGMA query_only = ON"));
    EXPECT_FALSE(tSettings.setDataDirectory(q("/data")));
    QString tError;
    EXPECT_FALSE(mStore.replaceIfDamaged(&tError));
    EXPECT_TRUE(mStore.damagedFile().isNull());
}
