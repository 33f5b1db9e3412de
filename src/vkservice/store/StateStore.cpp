#include "store/StateStore.h"

#include <QtCore/QDateTime>
#include <QtCore/QFile>

namespace tarn::vkservice::store {

using vkcore::Database;
using vkcore::Statement;

namespace {

// An answer means that the change has come to stay. With a write-ahead log that takes one sync, where
// a rollback journal takes four: the service answers nobody while it waits for the disk.
constexpr auto sPragmas = "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON;";

constexpr auto sTables = R"(
CREATE TABLE settings (
    name TEXT PRIMARY KEY,
    value TEXT
) WITHOUT ROWID;

CREATE TABLE variables (
    name TEXT PRIMARY KEY,
    value TEXT NOT NULL
) WITHOUT ROWID;

CREATE TABLE servers (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    name TEXT NOT NULL,
    uri TEXT NOT NULL,
    user TEXT NOT NULL,
    password TEXT,
    enabled INTEGER NOT NULL,
    isDefault INTEGER NOT NULL,
    savePassword INTEGER NOT NULL
);
CREATE UNIQUE INDEX oneDefaultServer ON servers (isDefault) WHERE isDefault = 1;
)";

constexpr const char* sProbes[] = {
    "SELECT name, value FROM settings LIMIT 1",
    "SELECT name, value FROM variables LIMIT 1",
    "SELECT id, name, uri, user, password, enabled, isDefault, savePassword FROM servers LIMIT 1",
};

} // namespace

bool StateStore::open(const QString& pStateDir, QString* pError)
{
    mPath = pStateDir + QStringLiteral("/state.db");
    mDamagedFile.clear();
    if (openFile(pError)) {
        return true;
    }
    return (mUnsound || mDatabase.isDamaged()) && setAside(pError) && openFile(pError);
}

bool StateStore::openFile(QString* pError)
{
    mUnsound = false;
    if (!mDatabase.open(mPath, Database::Mode::ReadWrite)) {
        *pError = QStringLiteral("The state database can't be opened: %1.").arg(mDatabase.errorText());
        return false;
    }
    // Before anything is written: a file of another version stays as it is.
    const int tVersion = mDatabase.schemaVersion();
    if (tVersion > sSchemaVersion) {
        *pError =
            QStringLiteral("The state database %1 was written by a newer version of the service (its schema "
                           "is %2, this version knows up to %3).")
                .arg(mPath)
                .arg(tVersion)
                .arg(sSchemaVersion);
        return false;
    }
    if (mDatabase.isDamaged() || !mDatabase.execute(sPragmas)) {
        *pError =
            QStringLiteral("The state database %1 can't be used: %2.").arg(mPath, mDatabase.errorText());
        return false;
    }
    if (tVersion == 0) {
        const bool tMade = mDatabase.transaction(
            [this] { return makeTables() && mDatabase.setSchemaVersion(sSchemaVersion); });
        if (!tMade) {
            *pError = QStringLiteral("The state database %1 can't be set up: %2.")
                          .arg(mPath, mDatabase.errorText());
        }
        return tMade;
    }
    mUnsound = !mDatabase.isHealthy() || !tablesAreThere();
    if (mUnsound) {
        *pError = QStringLiteral("The state database %1 is damaged.").arg(mPath);
    }
    return !mUnsound;
}

bool StateStore::makeTables()
{
    return mDatabase.execute(sTables);
}

bool StateStore::tablesAreThere()
{
    for (const char* tProbe : sProbes) {
        Statement tQuery(mDatabase, tProbe);
        tQuery.step();
        if (!tQuery.isOk()) {
            return false;
        }
    }
    return true;
}

bool StateStore::setAside(QString* pError)
{
    mDatabase.close();
    const QString tBase = mPath + QStringLiteral(".damaged-") +
                          QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMddhhmmss"));
    QString tTo = tBase;
    for (int i = 2; QFile::exists(tTo); ++i) {
        tTo = tBase + u'-' + QString::number(i);
    }
    // What belongs to the file goes with it: left behind, it would be played into the new database.
    for (const char* tSuffix : {"-wal", "-journal"}) {
        QFile::rename(mPath + QLatin1String(tSuffix), tTo + QLatin1String(tSuffix));
    }
    QFile::remove(mPath + QStringLiteral("-shm"));
    if (!QFile::rename(mPath, tTo)) {
        *pError = QStringLiteral("The state database %1 is damaged and can't be set aside.").arg(mPath);
        return false;
    }
    mDamagedFile = tTo;
    return true;
}

bool StateStore::replaceIfDamaged(QString* pError)
{
    return mDatabase.isDamaged() && setAside(pError) && openFile(pError);
}

} // namespace tarn::vkservice::store
