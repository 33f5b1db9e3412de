#pragma once

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

// Whole files, for tests.

// Empty if the file can't be read.
inline QByteArray readFile(const QString& pPath)
{
    QFile tFile(pPath);
    return tFile.open(QIODevice::ReadOnly) ? tFile.readAll() : QByteArray();
}

// Also creates the folders above it.
inline void writeFile(const QString& pPath, const QByteArray& pContent)
{
    QDir().mkpath(QFileInfo(pPath).path());
    QFile tFile(pPath);
    if (!tFile.open(QIODevice::WriteOnly | QIODevice::Truncate) || tFile.write(pContent) != pContent.size()) {
        qFatal("can't write %s", qPrintable(pPath));
    }
}

// Overwrites the bytes from an offset on.
inline void overwrite(const QString& pPath, qint64 pFrom, const QByteArray& pBytes)
{
    QByteArray tContent = readFile(pPath);
    tContent.replace(pFrom, pBytes.size(), pBytes);
    writeFile(pPath, tContent);
}

// Flips one bit in the middle of a file; a second call restores it.
inline void spoil(const QString& pPath)
{
    QByteArray tContent = readFile(pPath);
    char& tByte = tContent[tContent.size() / 2];
    tByte = static_cast<char>(tByte ^ 1);
    writeFile(pPath, tContent);
}
