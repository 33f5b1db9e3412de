#pragma once

#include "internal/Failure.h"
#include "os/Descriptor.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::os {

// An open folder that belongs only to this process's user, so later changes of its path have no effect. Files
// are named by plain names; a name with a slash, "." and ".." are refused with EINVAL. No link is followed.
class PrivateFolder
{
public:
    explicit PrivateFolder(FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}

    // Creates the folder, and those above it, if missing, and makes it private.
    Failure open(const QString& pPath);
    const QString& path() const { return mPath; }
    QString pathOf(const QByteArray& pName) const;

    // A file to read and to append to: the existing one if it is a regular file of this user without other
    // links and with at most pMaxSize bytes. Anything else with this name is removed, and the file is new.
    Failure openFile(const QByteArray& pName, qint64 pMaxSize, Descriptor* pTo) const;
    // In bytes; 0 if missing.
    qint64 sizeOf(const QByteArray& pName) const;
    // All names but those of folders.
    QList<QByteArray> names() const;
    // A missing one counts as removed.
    Failure remove(const QByteArray& pName) const;

private:
    bool isSound(const Descriptor& pFile, qint64 pMaxSize) const;

    FileSystem& mFileSystem;
    QString mPath;
    Descriptor mFolder;
};

} // namespace tarn::os
