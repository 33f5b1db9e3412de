#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

#include <sys/stat.h>

// An entry of an archive, possibly malicious.
struct TestEntry
{
    QByteArray mPath;
    QByteArray mContent; // of a link: its target
    mode_t mMode = S_IFREG | 0644;
    bool mHardLink = false;
    QList<QPair<qint64, qint64>> mHoles = {}; // a sparse file: offset and length of its data
};

// The bytes of a .tar.zst.
QByteArray makeArchive(const QList<TestEntry>& pEntries);
QByteArray makeTar(const QList<TestEntry>& pEntries);

// Every file and link below a folder, also hidden ones: relative path to content; the content of a link is
// "-> TARGET".
QMap<QString, QByteArray> readTree(const QString& pFolder);
