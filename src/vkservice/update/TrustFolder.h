#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QDateTime>
#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkservice::update {

// The trusted metadata of this machine, below "trust" in the state directory. It depends on the
// administrator's root file:
//
//   trust/HASH/metadata/   what the root file with this SHA-256 makes trusted, from any server
//   trust/HASH/servers/    a note on each server, see ServerNote
//   trust/current          the HASH that was used last, in case the root file is missing
//
// Servers are mirrors of the same repository: no server can revert what another one has shown.
class TrustFolder
{
public:
    TrustFolder(os::FileSystem& pFileSystem, const QString& pStateDir);

    // Finds the trust of the root file, or creates it from that file. pUri: of the server to be asked.
    Failure prepare(const QString& pRootFile, const QString& pUri);

    // Finds the trust of the last run without changing anything. False if there was none.
    bool usePrevious();

    // After one of these. The folder for tuf::Updater.
    QString path() const;
    QString notePath(const QString& pUri) const;

    // SHA-256 of the trusted timestamp, in hex; empty if there is none.
    QByteArray timestampHash() const;
    // When the first of the trusted files expires; invalid if that is not known.
    QDateTime earliestExpiry() const;
    // The clock, or a later time that the trusted files prove.
    QDateTime now() const;

private:
    QString currentPath() const;
    QByteArray lastRoot(const QString& pUri) const;
    Failure lostRoot() const;
    Failure noteCurrent();

    os::FileSystem& mFileSystem;
    QString mFolder;
    QByteArray mRootHash;
};

} // namespace tarn::vkservice::update
