#pragma once

#include "internal/Failure.h"
#include "sqlite/Database.h"

#include <QtCore/QString>

namespace tarn::vkservice::store {

// The database of the service's persistent state: state.db, mode 0600, in the state directory. The other
// classes in this folder read and write the tables.
class StateStore
{
public:
    static constexpr int sSchemaVersion = 2;

    // Creates the database if there is none, and migrates one of an earlier version. A damaged one is moved
    // aside, never overwritten: damagedFile() then names it, and the store is empty. A failure, and the
    // file unchanged, if the database cannot be read now, lacks a table, or was written by a newer
    // version of the service or another program.
    Failure open(const QString& pStateDir);

    // Whether the last operation failed because the database is damaged.
    bool isDamaged() const { return mDatabase.health() == vkcore::Database::Health::Corrupt; }
    // Moves the damaged database aside and creates an empty one.
    Failure replace();

    // The path that the last damaged database was moved to, null if there was none.
    const QString& damagedFile() const { return mDamagedFile; }
    // True if the last one that was opened had no tables before, because it was missing or empty.
    bool isNew() const { return mIsNew; }
    vkcore::Database& database() { return mDatabase; }

private:
    Failure openFile();
    bool tablesAreThere();
    Failure unusable() const;

    vkcore::Database mDatabase;
    QString mPath;
    QString mDamagedFile;
    bool mIsNew = false;
};

} // namespace tarn::vkservice::store
