#pragma once

#include "internal/LogRecord.h"
#include "sqlite/Database.h"

#include <vkcore/InstLogEntry.h>

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkcore {

// The log of installed updates, a database that everybody on the machine may read (0644, rollback journal).
// The service writes it, and rkm reads it without a service.
class InstallLogStore
{
public:
    static QString fileName(); // "install-log.db", below the state directory

    // From here on, wait for the locks of others for so long in all; else it is 5 s for each operation.
    void waitInAll(int pMilliseconds) { mDatabase.waitInAll(pMilliseconds); }
    bool openForWriting(const QString& pPath);
    bool openForReading(const QString& pPath);

    // Adds the records of one run at the time pDate, all or none. A run that is already in the log is not
    // changed and counts as added; pRunId identifies the run.
    bool append(const QString& pRunId, const QDateTime& pDate, const QList<LogRecord>& pRecords);

    // As Installer::getInstallLog.
    bool read(QList<GRef2<InstLogEntry>>* pEntries, const QDateTime& pFrom, const QDateTime& pTo,
              int pMaxCount, bool pTopLevelOnly);

    const QString& errorText() const { return mErrorText; }
    // The file is not a database, or is a damaged one.
    bool isDamaged() const { return mDatabase.health() == Database::Health::Corrupt; }
    // As Database::setAside.
    QString setAside();

private:
    bool fail();
    std::optional<bool> knows(const QString& pRunId);
    bool checkVersion();

    Database mDatabase;
    QString mErrorText;
};

} // namespace tarn::vkcore
