#pragma once

#include "tuf/Hash.h"

#include <QtCore/QJsonObject>
#include <QtCore/QString>

namespace tarn::tuf {

// A file that the repository offers.
struct TargetFile
{
    QString mPath; // as signed; relative, may hold folders
    qint64 mLength = 0;
    HashList mHashes; // at least one
    QJsonObject mCustom;
    // Where to fetch it below the targets folder, percent-encoded: with consistent snapshots its hash stands
    // in front of the file's name. Whoever decodes it must not trust it: a signed path may hold "..".
    QString mFetchPath;
    QString mRole; // that it is taken from
    // The place of that role in a search of all roles: 0 is the top-level role "targets".
    int mRoleRank = 0;
};

} // namespace tarn::tuf
