#pragma once

#include "internal/Failure.h"
#include "os/PrivateFolder.h"
#include "update/DownloadFile.h"

#include <QtCore/QSet>

#include <functional>
#include <span>
#include <vector>

namespace tarn::os {
class AbortFlag;
}

namespace tarn::vkservice::update {

class Reporter;
struct Offer;
struct Plan;

// Something to download, and what came of it.
struct Download
{
    Wanted mWanted;
    QString mLabel; // of its package
    Failure mFailure;
    bool mHasNoParts = false; // the failure is that the server only sends whole files
};

// What a run downloads, in a folder. Uses what an earlier run or another server left there, and removes what
// cannot be verified.
class Downloads
{
public:
    Downloads(os::FileSystem& pFileSystem, const QString& pStateDir, Reporter& pReporter,
              const os::AbortFlag& pAbort);

    Failure open();
    const QString& folder() const { return mFolder.path(); }
    QString pathOf(const Offer& pOffer) const;
    QString pathOf(const Wanted& pWanted) const { return mFolder.pathOf(pWanted.mName); }
    // Removes what belongs neither to this plan nor to an earlier one of this object.
    void keep(const Plan& pPlan);

    // Gets and verifies each of these, and stores the failures. What comes twice is downloaded once. The
    // return value is a failure of this machine or an abort, and ends the run.
    Failure fetch(Source& pSource, std::vector<Download>* pDownloads);
    // Bytes that are here already.
    qint64 onDisk(const Wanted& pWanted) const { return mFolder.sizeOf(pWanted.mName); }
    bool isComplete(const Wanted& pWanted) const;
    // Bytes that servers have sent.
    qint64 received() const { return mReceived; }

    // Removes what belongs to the packages that have not failed.
    void remove(const Plan& pPlan);
    // Removes everything.
    void clear();

private:
    struct Item;
    using Items = std::vector<Item>;

    Failure fetch(Source& pSource, Items* pItems);
    Failure download(Source& pSource, Items* pItems);
    Failure transfer(Source& pSource, std::span<Item*> pItems);
    void removeIf(const std::function<bool(const QByteArray&)>& pCondition);
    Failure verify(Items* pItems, std::vector<Item*>* pSpoiled);

    os::FileSystem& mFileSystem;
    QString mPath;
    os::PrivateFolder mFolder;
    QSet<QByteArray> mKept;
    qint64 mReceived = 0;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
};

} // namespace tarn::vkservice::update
