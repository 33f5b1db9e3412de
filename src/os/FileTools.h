#pragma once

#include "internal/Failure.h"
#include "os/FileSystem.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayList>
#include <QtCore/QString>

namespace tarn::os {

class Descriptor;

// Writes all bytes, in several calls if needed. -1 and errno on failure.
int writeAll(FileSystem& pFileSystem, int pFd, const char* pData, size_t pSize);

// A folder with all folders above it; one that is there already is fine.
Failure makePath(FileSystem& pFileSystem, const QString& pPath, mode_t pMode);

// Opens a regular file to read it. Not open, with errno, for anything else with this name: no link is
// followed, and a pipe does not block the caller.
Descriptor openRegular(FileSystem& pFileSystem, const QByteArray& pPath);

// Reads a whole regular file. NotFound if there is none, Content if it is longer than pMaxSize bytes.
Result<QByteArray> readFile(FileSystem& pFileSystem, const QString& pPath, qint64 pMaxSize);

// The same for an open file; pPath is its name in messages.
Result<QByteArray> readOpenFile(FileSystem& pFileSystem, int pFd, const QString& pPath, qint64 pMaxSize);

// Creates or overwrites a file, without syncing it.
Failure writeFile(FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes, mode_t pMode);

// Replaces a file atomically and durably: after a crash it has the old or the new bytes. A crash may leave
// pPath + ".new", which the next call replaces.
Failure replaceFile(FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes, mode_t pMode);

// Removes a file, a link or a whole folder, also one with read-only folders in it; links are not followed. A
// missing one counts as removed.
// Continues after a failure and returns the first one.
Failure removeTree(FileSystem& pFileSystem, const QString& pPath);

// The same for the entry named by the last of pNames; the others are the folders above it, starting at
// pDirFd. A link or a file among these folders is a failure, and nothing is removed. pPath is its name in
// messages.
Failure removeBelow(FileSystem& pFileSystem, int pDirFd, const QByteArrayList& pNames, const QString& pPath);

// Opens the folder below pDirFd that pNames lead to, without following links. -1 and errno on failure.
int openBelow(FileSystem& pFileSystem, int pDirFd, const QByteArrayList& pNames);

// The names in an open folder, hidden ones too. pPath is its name in messages.
Result<QByteArrayList> namesIn(int pFolder, const QString& pPath);

// fsync of a folder: its names are on the disk after it.
Failure syncDir(FileSystem& pFileSystem, const QString& pPath);

} // namespace tarn::os
