#include "StoreTest.h"

#include "store/Settings.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

using namespace tarn::vkservice::store;

namespace {

void spoil(const QString& pPath, qint64 pFrom, const QByteArray& pBytes)
{
    QFile tFile(pPath);
    ASSERT_TRUE(tFile.open(QIODevice::ReadWrite));
    ASSERT_TRUE(tFile.seek(pFrom));
    ASSERT_EQ(tFile.write(pBytes), pBytes.size());
}

} // namespace

TEST_F(StoreTest, IsClosedToOthers)
{
    ASSERT_TRUE(Settings(mStore.database()).setDataDirectory(QStringLiteral("/data")));
    const QStringList tFiles = QDir(mDir.path()).entryList(QDir::Files);
    ASSERT_GE(tFiles.size(), 2) << "the write-ahead log holds the same secrets";
    for (const QString& tFile : tFiles) {
        EXPECT_EQ(QFile::permissions(mDir.filePath(tFile)) &
                      (QFile::ReadGroup | QFile::WriteGroup | QFile::ReadOther | QFile::WriteOther),
                  QFile::Permissions())
            << tFile.toStdString();
    }
}

TEST_F(StoreTest, DamagedOneIsSetAsideWholeAndAFreshOneBegun)
{
    ASSERT_TRUE(Settings(mStore.database()).setDataDirectory(QStringLiteral("/data")));
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
        spoil(file(), tCase.mFrom, tCase.mBytes);
        QFile tBroken(file());
        ASSERT_TRUE(tBroken.open(QIODevice::ReadOnly));
        const QByteArray tContent = tBroken.readAll();

        QString tError;
        ASSERT_TRUE(mStore.open(mDir.path(), &tError)) << tError.toStdString();
        EXPECT_EQ(Settings(mStore.database()).dataDirectory(), std::optional(QString()));
        QFile tKept(mStore.damagedFile());
        ASSERT_TRUE(tKept.open(QIODevice::ReadOnly)) << mStore.damagedFile().toStdString();
        EXPECT_TRUE(tKept.fileName().startsWith(file() + QStringLiteral(".damaged-")));
        EXPECT_EQ(tKept.readAll(), tContent);
        ASSERT_TRUE(tKept.remove());
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
        spoil(file(), 0, QByteArray(100, 'x'));
        reopen();
    }
    EXPECT_EQ(QDir(mDir.path()).entryList({QStringLiteral("state.db.damaged-*")}).size(), 2);
}

TEST_F(StoreTest, NewerSchemaIsRefusedAndLeftAlone)
{
    ASSERT_TRUE(mStore.database().execute("PRAGMA journal_mode = DELETE"));
    ASSERT_TRUE(mStore.database().setSchemaVersion(StateStore::sSchemaVersion + 1));
    mStore.database().close();
    QString tError;
    EXPECT_FALSE(mStore.open(mDir.path(), &tError));
    EXPECT_TRUE(tError.contains(QStringLiteral("newer version"))) << tError.toStdString();
    EXPECT_EQ(QDir(mDir.path()).entryList(QDir::Files), QStringList{QStringLiteral("state.db")});
}

TEST_F(StoreTest, HealthyOneThatFailsIsNotReplaced)
{
    Settings tSettings(mStore.database());
    ASSERT_TRUE(mStore.database().execute("PRAGMA query_only = ON"));
    EXPECT_FALSE(tSettings.setDataDirectory(QStringLiteral("/data")));
    QString tError;
    EXPECT_FALSE(mStore.replaceIfDamaged(&tError));
    EXPECT_TRUE(mStore.damagedFile().isNull());
}
