#pragma once

#include "tuf/Hash.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

namespace tarn::packages {

// The files that a publisher adds beside the archive of a package. A machine that does not know them ignores
// them. Their names and places follow from their hashes, so that nothing signed is used as a path.
struct SideFile
{
    qint64 mLength = 0; // bytes, at least 1
    tuf::Hash mHash;    // SHA-256

    bool operator==(const SideFile&) const = default;
};

// The text of an index before it is packed: what deltas start from and lead to.
struct IndexName
{
    tuf::Hash mHash; // SHA-256
    qint64 mLength = 0;

    bool operator==(const IndexName&) const = default;
};

// The packed index of a package: targets/SHA256.index.zst.
struct IndexFile
{
    SideFile mFile;
    IndexName mText;

    // The file's name in the targets folder.
    QString name() const { return QString::fromLatin1(mFile.mHash.toHex()) + QStringLiteral(".index.zst"); }
    bool operator==(const IndexFile&) const = default;
};

// What makes the package out of an older one whose index has the text mFrom: targets/SHA256.delta.
struct DeltaFile
{
    SideFile mFile;
    IndexName mFrom;

    QString name() const { return QString::fromLatin1(mFile.mHash.toHex()) + QStringLiteral(".delta"); }
    bool operator==(const DeltaFile&) const = default;
};

} // namespace tarn::packages
