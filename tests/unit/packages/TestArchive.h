#pragma once

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

#include <sys/stat.h>

// An entry of an archive as a publisher's tool, or somebody who means harm, could write it.
struct TestEntry
{
    QByteArray mPath;
    QByteArray mContent; // of a link: its target
    mode_t mMode = S_IFREG | 0644;
    bool mHardLink = false;
    QList<QPair<qint64, qint64>> mHoles = {}; // a sparse file: offset and length of what is no hole
};

// The bytes of a .tar.zst.
QByteArray makeArchive(const QList<TestEntry>& pEntries);

// Every file and link below a folder, relative path to content; a link's content is "-> TARGET". Hidden ones
// too.
QMap<QString, QByteArray> readTree(const QString& pFolder);
