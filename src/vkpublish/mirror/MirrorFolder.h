#pragma once

#include "keys/FolderLock.h"
#include "mirror/MirrorRecord.h"

#include "os/PrivateFolder.h"

#include <QtCore/QStringList>

namespace tarn::vkpublish {

// The folder of a mirror. It becomes one while it is empty; then DIR/.vk-mirror marks it, a private folder
// with
//
//   mirror.json   what the mirror has written
//   trust/        the metadata of the repository that was seen last, as on a machine
//   incoming/     files that are not complete or not proven yet
//   lock
class MirrorFolder
{
public:
    MirrorFolder(os::FileSystem& pFileSystem, const QString& pPath);

    // Claims the folder, which no other process may have, and reads the record. Kind::Person for a folder
    // that is not empty and no mirror.
    Failure open();
    // Locks the repository that the copy is, against publishers. After its metadata folder was made.
    Failure lockRepository();
    // Writes the record; after the first time the folder is a mirror.
    Failure save();
    // Makes a folder below this one, with those above it. A link or a file in place of one of them is a
    // failure. After save().
    Failure makeFolder(const QString& pBelow) const;
    // Removes what is unnamed for pGrace seconds, and is not in pKept. Adds to *pCount.
    Failure prune(const QDateTime& pNow, qint64 pGrace, const QSet<QString>& pKept, int* pCount);

    const QString& path() const { return mPath; }
    QString pathOf(const QString& pBelow) const { return mPath + u'/' + pBelow; }
    QString trust() const { return mPrivate.pathOf("trust"); }
    const os::PrivateFolder& incoming() const { return mIncoming; }
    // Whether there is a link among the folders above a file.
    bool leadsOut(const QString& pBelow) const;
    // Files that the mirror has not written.
    QStringList foreignFiles() const;

    MirrorRecord mRecord;

private:
    Failure checkIsOurs() const;
    Failure lock();
    Failure readRecord();

    os::FileSystem& mFileSystem;
    QString mPath;
    os::PrivateFolder mPrivate;
    os::PrivateFolder mIncoming;
    os::Descriptor mLock;
    FolderLock mRepositoryLock;
};

} // namespace tarn::vkpublish
