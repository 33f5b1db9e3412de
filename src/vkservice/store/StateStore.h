#pragma once

#include "sqlite/Database.h"

#include <QtCore/QString>

namespace tarn::vkservice::store {

// The database of all that the service has to remember: state.db, mode 0600, in the state directory. The
// tables are read and written by the classes beside this one.
class StateStore
{
public:
    static constexpr int sSchemaVersion = 1;

    // Makes the database where there is none, and brings one of an earlier version up to this one. A damaged
    // one is set aside, never overwritten: damagedFile() then names it, and the store is empty. False with a
    // reason, and the file left alone, if the database can't be read now, lacks a table, comes from a newer
    // version of the service, or from elsewhere.
    bool open(const QString& pStateDir, QString* pError);

    // For a failed operation: if it failed because the database is damaged, sets that aside and begins an
    // empty one. True if so.
    bool replaceIfDamaged(QString* pError);

    // Where the last damaged database was moved to, null if none was.
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
