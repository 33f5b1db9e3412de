#pragma once

#include "sqlite/Database.h"

#include <QtCore/QString>

namespace tarn::vkservice::store {

// The database of the service's persistent state: state.db, mode 0600, in the state directory. The other
// classes in this folder read and write the tables.
class StateStore
{
public:
    static constexpr int sSchemaVersion = 1;

    // Creates the database if there is none, and migrates one of an earlier version. A damaged one is moved
    // aside, never overwritten: damagedFile() then names it, and the store is empty. False with a reason, and
    // the file unchanged, if the database cannot be read now, lacks a table, or was written by a newer
    // version of the service or another program.
    bool open(const QString& pStateDir, QString* pError);

    // For a failed operation: if the cause is a damaged database, moves it aside and creates an empty one.
    // True if so.
    bool replaceIfDamaged(QString* pError);

    // The path that the last damaged database was moved to, null if there was none.
    const QString& damagedFile() const { return mDamagedFile; }
    vkcore::Database& database() { return mDatabase; }

private:
    bool openFile(QString* pError);
    bool tablesAreThere();
    bool fail(QString* pError);

    vkcore::Database mDatabase;
    QString mPath;
    QString mDamagedFile;
};

} // namespace tarn::vkservice::store
