#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::os {

// A folder that belongs to this process's user alone, held open: what its path leads to later plays no part.
// Every file is named by a plain name in it; a name with a slash, and those of the folder and its parent,
// are refused with EINVAL. No link is followed.
class PrivateFolder
{
public:
    explicit PrivateFolder(FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}

    // Makes the folder, with those above it, where it is missing, and closes it to others.
    Failure open(const QString& pPath);
    const QString& path() const { return mPath; }
    QString pathOf(const QByteArray& pName) const;

    // A file to read and to append to: the one that is there where that is a plain file of this user, known
    // by no other name, with pMaxSize bytes at most. Anything else under the name goes, and the file is new.
    Failure openFile(const QByteArray& pName, qint64 pMaxSize, Descriptor* pTo) const;
    // In bytes; 0 for what is not there.
    qint64 sizeOf(const QByteArray& pName) const;
    // All names but those of folders.
    QList<QByteArray> names() const;
    // What is not there counts as removed.
    Failure remove(const QByteArray& pName) const;

private:
    bool isSound(const Descriptor& pFile, qint64 pMaxSize) const;

    FileSystem& mFileSystem;
    QString mPath;
    Descriptor mFolder;
};

} // namespace tarn::os
