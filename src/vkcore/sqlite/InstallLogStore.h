#pragma once

#include "internal/LogRecord.h"
#include "sqlite/Database.h"

#include <vkcore/InstLogEntry.h>

#include <QtCore/QDateTime>
#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QSet>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkcore {

struct LoggedPackage : LogRecord
{
    QString mPrevious; // the version that was installed before; null if none, or if that was too long ago
};

struct LoggedRun
{
    QDateTime mDate;
    bool mIsWayBack = false; // its packages were put out of use
    QList<LoggedPackage> mPackages;
};

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
    // The newest runs, newest first; fewer if they have very many packages. Titles and reports of the older
    // ones are empty if those of the newer ones are very long.
    bool readRuns(QList<LoggedRun>* pRuns, int pMaxCount);
    // When the packages, each with its version, were installed last. Does not look back for longer than
    // 20,000 packages.
    bool readDates(QHash<QString, QDateTime>* pDates, const QHash<QString, QString>& pVersions);

    const QString& errorText() const { return mErrorText; }
    // The file is not a database, or is a damaged one.
    bool isDamaged() const { return mDatabase.health() == Database::Health::Corrupt; }
    // As Database::setAside.
    QString setAside();

private:
    bool fail();
    bool readVersions(QHash<QString, QString>* pVersions, const QSet<QString>& pPackages,
                      const QDateTime& pBefore);
    std::optional<bool> knows(const QString& pRunId);
    bool checkVersion();

    Database mDatabase;
    QString mErrorText;
};

} // namespace tarn::vkcore
