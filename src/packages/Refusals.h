#pragma once

#include "internal/Failure.h"
#include "tuf/Hash.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QSet>
#include <QtCore/QString>

namespace tarn::os {
class FileSystem;
}

namespace tarn::packages {

// A package that failed on this machine and is not installed again.
struct Refusal
{
    QString mName;
    QString mVersion; // Version::toString
    tuf::Hash mHash;  // of its archive: other bytes of the same version are not refused
    QString mReason;  // one plain line
    QDateTime mDate;
    bool mIsFix = false; // the version in use has a flaw that it fixes. Not stored
};

// All of them, stored as STATEDIR/refused.json. docs/file-formats.md has an example.
class Refusals
{
public:
    static constexpr qsizetype sMost = 1000; // the oldest ones are forgotten first

    const QList<Refusal>& all() const { return mAll; }
    bool has(const tuf::Hash& pHash) const { return find(pHash) != nullptr; }
    const Refusal* find(const tuf::Hash& pHash) const;
    // The first reason for the same bytes stays.
    void add(const Refusal& pRefusal);
    // False if there was none.
    bool lift(const tuf::Hash& pHash);
    // Of all versions; returns how many there were.
    qsizetype lift(const QString& pName);

    QByteArray toBytes() const;
    static Result<Refusals> fromBytes(const QByteArray& pBytes);

    // Reads the file. Without one there are none; Content if it is damaged.
    static Result<Refusals> load(os::FileSystem& pFileSystem, const QString& pStateDir);
    // The same, but a damaged file is renamed, and *pWarning says that its refusals are lost.
    static Result<Refusals> loadOrSetAside(os::FileSystem& pFileSystem, const QString& pStateDir,
                                           QString* pWarning);
    // Replaces the file atomically and durably.
    Failure store(os::FileSystem& pFileSystem, const QString& pStateDir) const;

private:
    QList<Refusal> mAll; // the oldest first
};

} // namespace tarn::packages
