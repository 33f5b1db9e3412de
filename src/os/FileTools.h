#pragma once

#include "internal/Failure.h"
#include "os/FileSystem.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayList>
#include <QtCore/QString>

namespace tarn::os {

// Writes all of the bytes, however many calls that takes. -1 and errno on failure.
int writeAll(FileSystem& pFileSystem, int pFd, const char* pData, size_t pSize);

// A folder with all folders above it; one that is there already is fine.
Failure makePath(FileSystem& pFileSystem, const QString& pPath, mode_t pMode);

// The whole of a regular file, or a failure if it is longer than pMaxSize bytes.
Failure readFile(FileSystem& pFileSystem, const QString& pPath, qint64 pMaxSize, QByteArray* pTo);

// The same of a file that is open; pPath is what messages call it.
Failure readOpenFile(FileSystem& pFileSystem, int pFd, const QString& pPath, qint64 pMaxSize,
                     QByteArray* pTo);

// Makes or replaces a file, without syncing it.
Failure writeFile(FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes, mode_t pMode);

// Replaces a file as a whole and brings it to the disk: after a crash the old or the new bytes are there.
// What a crash leaves is named pPath + ".new", and the next call replaces it.
Failure replaceFile(FileSystem& pFileSystem, const QString& pPath, const QByteArray& pBytes, mode_t pMode);

// Removes a file, a link or a whole folder; links are not followed. What is not there counts as removed. Goes
// on behind a failure and reports the first one.
Failure removeTree(FileSystem& pFileSystem, const QString& pPath);

// The same for what the last of pNames is called in the folder that the others lead to, one below the other
// from pDirFd on. A link or a file among these others is a failure: nothing is removed behind it. pPath is
// what messages call it.
Failure removeBelow(FileSystem& pFileSystem, int pDirFd, const QByteArrayList& pNames, const QString& pPath);

// The folder that pNames lead to, one below the other from pDirFd on, without following a link. -1 and errno.
int openBelow(FileSystem& pFileSystem, int pDirFd, const QByteArrayList& pNames);

// fsync of a folder: its names are on the disk after it.
Failure syncDir(FileSystem& pFileSystem, const QString& pPath);

} // namespace tarn::os
