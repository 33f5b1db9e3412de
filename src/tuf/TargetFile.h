#pragma once

#include "tuf/Hash.h"

#include <QtCore/QJsonObject>
#include <QtCore/QString>

namespace tarn::tuf {

// A file that the repository offers.
struct TargetFile
{
    QString mPath; // as signed; relative, may contain folders
    qint64 mLength = 0;
    HashList mHashes; // at least one
    QJsonObject mCustom;
    // Its path below the targets folder, percent-encoded: with consistent snapshots, the file name is
    // prefixed with its hash. Do not trust it after decoding: a signed path may contain "..".
    QString mFetchPath;
    QString mRole; // that offers it
    // The place of that role in a search of all roles: 0 is the top-level role "targets".
    int mRoleRank = 0;
};

} // namespace tarn::tuf
