#pragma once

#include "internal/Failure.h"

#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::os {
class FileSystem;
}

namespace tarn::packages {

// Which installation this is, and which root folders it has had. Kept as STATEDIR/installation.json:
//
//   {"format": 1, "id": "6f1c...", "roots": ["/opt/vk", "/srv/charts"]}
class Installation
{
public:
    Installation(os::FileSystem& pFileSystem, const QString& pStateDir);

    // True if there has been one, whatever its file says.
    static bool isIn(const QString& pStateDir);
    // A file that is not there is that of a new installation.
    Failure read();

    const QString& id() const { return mId; } // empty before the first setId()
    const QStringList& roots() const { return mRoots; }

    // Both are synced when they return, or have changed nothing.
    Failure setId(const QString& pId);
    Failure addRoot(const QString& pRoot);

private:
    Failure write(const QString& pId, const QStringList& pRoots);

    os::FileSystem& mFileSystem;
    QString mPath;
    QString mId;
    QStringList mRoots;
};

} // namespace tarn::packages
