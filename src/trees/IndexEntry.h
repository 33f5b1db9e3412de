#pragma once

#include "tuf/Hash.h"

#include <QtCore/QByteArray>
#include <QtCore/QByteArrayList>
#include <QtCore/QString>

#include <optional>

namespace tarn::trees {

enum class EntryKind
{
    Folder,
    File,
    Link,
};

// One file, folder or link of a package, as its index names it.
struct IndexEntry
{
    QByteArray mPath; // relative to the package, UTF-8
    EntryKind mKind = EntryKind::Folder;
    QByteArray mTarget; // of a link

    // Of a file.
    bool mIsExecutable = false;
    qint64 mTime = 0; // modified, seconds since 1970
    qint64 mSize = 0; // bytes
    tuf::Hash mHash;  // SHA-256
    qint64 mAt = 0;   // where its bytes begin in the unpacked archive

    bool operator==(const IndexEntry&) const = default;
};

// A part of the archive that can be unpacked by itself.
struct Frame
{
    qint64 mPacked = 0; // bytes in the archive
    qint64 mUnpacked = 0;
    tuf::Hash mHash; // SHA-256 of the packed bytes

    bool operator==(const Frame&) const = default;
};

// The first line of an index.
struct IndexHeader
{
    qint64 mFrames = 0;
    qint64 mEntries = 0;
    qint64 mBytes = 0; // of all files together

    bool operator==(const IndexHeader&) const = default;
};

QByteArray toLine(const IndexHeader& pHeader); // without the end of the line
QByteArray toLine(const Frame& pFrame);
// pEnd is where the last file before this entry ends in the unpacked archive. A line has the gap behind it,
// so that a file that changes its size leaves the lines of all others as they were.
QByteArray toLine(const IndexEntry& pEntry, qint64 pEnd);

// None for a line that breaks one of the rules above. Unknown members are ignored.
std::optional<IndexHeader> headerFromLine(const QByteArray& pLine);
std::optional<Frame> frameFromLine(const QByteArray& pLine);
std::optional<IndexEntry> entryFromLine(const QByteArray& pLine, qint64 pEnd);

// Entries stand in the order of their paths, taken name by name: each folder before what is in it.
bool comesBefore(const QByteArrayList& pNames, const QByteArrayList& pOther);

} // namespace tarn::trees
