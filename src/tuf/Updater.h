#pragma once

#include "internal/Failure.h"
#include "tuf/Fetcher.h"
#include "tuf/Limits.h"
#include "tuf/TargetFile.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>

#include <memory>
#include <optional>

namespace tarn::os {
class FileSystem;
}

// A client of The Update Framework, version 1.0 of its standard: which files an update server offers,
// verified by signatures back to the root that the administrator installed.
namespace tarn::tuf {

// One repository, with this machine's trusted metadata in its own folder: root.json, timestamp.json,
// snapshot.json, targets.json and one file for each delegated role. Not for two threads at once.
class Updater
{
public:
    // pMetadataDir must contain a trusted root.json. pNow is the time of the clock; expiry is checked against
    // it, or against a later time that stored files prove.
    Updater(os::FileSystem& pFileSystem, const QString& pMetadataDir, Fetcher& pFetcher,
            const QDateTime& pNow, const Limits& pLimits = Limits());
    ~Updater();

    // Initializes a metadata folder with a root file; only the root's own signatures are checked. Creates the
    // folder if missing, and replaces its contents.
    static Failure initialize(os::FileSystem& pFileSystem, const QString& pMetadataDir,
                              const QByteArray& pRoot);

    // Root, timestamp, snapshot and top-level targets, in this order. Each is stored as soon as it is
    // verified. pTimestamp: the server's timestamp, if it was just fetched; null: it was not.
    Failure refresh(const QByteArray& pTimestamp = {});
    // True after a refresh() that found the timestamp of the last one: nothing can be new.
    bool unchanged() const;

    // Of the state that refresh() has found; 0 before. Two servers with the same one offer the same.
    qint64 snapshotVersion() const;
    // The time that the stored files of a metadata folder prove to have passed; invalid: none.
    static QDateTime provenTime(os::FileSystem& pFileSystem, const QString& pMetadataDir);

    // Searches the target roles, fetching delegated ones as needed. No value and no error: not offered.
    Failure findTarget(const QString& pPath, std::optional<TargetFile>* pTo);
    // Every target of every role, each from the role where findTarget finds it, with that role's rank.
    Failure allTargets(QList<TargetFile>* pTo);

private:
    class Private;
    std::unique_ptr<Private> d;
};

} // namespace tarn::tuf
