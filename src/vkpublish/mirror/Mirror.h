#pragma once

#include "mirror/MirrorFolder.h"
#include "mirror/WholeState.h"

#include <functional>

namespace tarn::vkpublish {

class Origin;

struct MirrorJob
{
    QByteArray mRoot = {};                    // empty: the one that the mirror began with
    bool mCheck = false;                      // read and prove every file that is there, too
    std::optional<qint64> mPruneSeconds = {}; // remove what no state has named for so long
    QDateTime mNow = {};
    std::function<void(int)> mWait = {}; // waits that many seconds before a file is tried again
};

struct MirrorReport
{
    std::optional<int> mPackages; // unknown if nothing is new
    QDateTime mExpires;
    int mFiles = 0; // fetched for targets/
    qint64 mBytes = 0;
    int mPruned = 0;
    QStringList mForeign; // with mPruneSeconds: what was left alone
};

// Makes a folder a verified copy of a repository. Whatever the origin does, and wherever a run ends, machines
// find a whole state in the folder, the one before or the new one.
class Mirror
{
public:
    Mirror(os::FileSystem& pFileSystem, const QString& pFolder, Origin& pOrigin);

    Failure run(const MirrorJob& pJob, MirrorReport* pReport);

private:
    Failure trust(const QByteArray& pRoot);
    Result<bool> isUpToDate(const MirrorJob& pJob, MirrorReport* pReport);
    Failure copy(const MirrorJob& pJob, MirrorReport* pReport);
    Failure begin(const QSet<QString>& pNamed);
    Failure bringTargets(const WholeState& pState, const MirrorJob& pJob, MirrorReport* pReport);
    Failure syncFolders(const WholeState& pState);
    Failure writeMetadata(const WholeState& pState, const QList<MetadataFile>& pRoots, const MirrorJob& pJob);
    Failure write(const MetadataFile& pFile);
    bool holds(const QString& pPath, const QByteArray& pBytes) const;

    os::FileSystem& mFileSystem;
    MirrorFolder mFolder;
    Origin& mOrigin;
};

} // namespace tarn::vkpublish
