#pragma once

#include "internal/Failure.h"

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

class KeyFolder;

enum class RecordUse
{
    Publishing,     // everything; each package is read and must have its signed hash
    RefreshingOnly, // no packages; the folder must have the keys of timestamp and snapshot, and no others
};

struct Recovered
{
    QStringList mProblems; // why the repository can't be believed, one a line; then there is no record
    QDateTime mExpires;    // of the state that the record continues
    qsizetype mPackages = 0;
    QStringList mMissingRoles; // whose keys the folder does not have
    QStringList mUnnamed;      // files of packages that the list does not name, below the repository
};

// Makes the record of a repository again from what was signed, beginning with a root that the publisher
// trusts, and from the keys in the folder, which must be open without a record. Expired files count, too. The
// caller writes the record with KeyFolder::save().
Failure recoverRecord(os::FileSystem& pFileSystem, const QString& pRepository, const QByteArray& pRoot,
                      RecordUse pUse, KeyFolder* pKeys, Recovered* pTo);

} // namespace tarn::vkpublish
