#include "store/StateStore.h"

#include <algorithm>
#include <iterator>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::store {

using vkcore::Database;
using vkcore::Statement;

namespace {

// An answer promises that the change is durable. A write-ahead log needs one sync for that, a rollback
// journal four: the service answers no client while it waits for the disk.
constexpr auto sPragmas = "PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA foreign_keys = ON;";

// Each migrates from one version of the tables to the next. Released entries never change.
constexpr const char* sSteps[] = {R"(
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
)",
                                  R"(
CREATE TABLE holds (
    name TEXT PRIMARY KEY,
    versions TEXT,
    until TEXT
) WITHOUT ROWID;
)"};
static_assert(std::size(sSteps) == StateStore::sSchemaVersion);

constexpr const char* sProbes[] = {
    "SELECT name, value FROM settings LIMIT 1",
    "SELECT name, value FROM variables LIMIT 1",
    "SELECT id, name, uri, user, password, enabled, isDefault, savePassword FROM servers LIMIT 1",
    "SELECT name, versions, until FROM holds LIMIT 1",
};

} // namespace

Failure StateStore::open(const QString& pStateDir)
{
    mPath = pStateDir + u"/state.db"_s;
    mDamagedFile.clear();
    const Failure tFailure = openFile();
    return tFailure && isDamaged() ? replace() : tFailure;
}

Failure StateStore::openFile()
{
    // All of it is read before anything is written.
    const bool tIsSound =
        mDatabase.open(mPath, Database::Mode::ReadWrite) && mDatabase.check() == Database::Health::Sound;
    mIsNew = tIsSound && mDatabase.schemaVersion() == 0;
    const bool tOk = tIsSound && mDatabase.migrate(sSteps) && mDatabase.execute(sPragmas) && tablesAreThere();
    return tOk ? Failure() : unusable();
}

Failure StateStore::unusable() const
{
    return {
        Failure::Kind::Damaged,
        u"The state database %1 can't be used and was not changed: %2. Fix the cause and start the service "
        "again, or move the file away to start without settings"_s.arg(mPath, mDatabase.errorText())};
}

bool StateStore::tablesAreThere()
{
    return std::all_of(std::begin(sProbes), std::end(sProbes), [this](const char* pProbe) {
        Statement tQuery(mDatabase, pProbe);
        tQuery.step();
        return tQuery.isOk();
    });
}

Failure StateStore::replace()
{
    const QString tAside = mDatabase.setAside();
    if (tAside.isNull()) {
        return unusable();
    }
    mDamagedFile = tAside;
    return openFile();
}

} // namespace tarn::vkservice::store
