#pragma once

#include "internal/Failure.h"
#include "os/PrivateFolder.h"

#include <QtCore/QSet>

#include <vector>

namespace tarn::os {
class AbortFlag;
}

namespace tarn::vkservice::update {

class ArchiveFile;
class Reporter;
class Source;
struct Offer;
struct Plan;

// The archives of a plan, in the folder of downloads. Uses what an earlier run or another server left there,
// and removes what cannot be verified.
class Downloads
{
public:
    Downloads(os::FileSystem& pFileSystem, const QString& pStateDir, Reporter& pReporter,
              const os::AbortFlag& pAbort);

    Failure open();
    const QString& folder() const { return mFolder.path(); }
    QString pathOf(const Offer& pOffer) const;
    // Removes the archives that are neither in this plan nor in an earlier one of this object.
    void keep(const Plan& pPlan);
    qint64 bytesToCome(const Plan& pPlan) const;

    // Gets and verifies the archive of each package that has not failed yet, and stores a failure in each
    // package that fails now. The return value is a failure of this machine or an abort, and ends the run.
    Failure fetch(Source& pSource, Plan* pPlan);

    // Removes the archives of the packages that have not failed.
    void remove(const Plan& pPlan);
    // Removes all archives.
    void clear();

private:
    struct Item;
    using Items = std::vector<Item>;

    Failure fetch(Source& pSource, Items* pItems);
    Failure download(Source& pSource, Items* pItems);
    void removeAllBut(const QSet<QByteArray>& pKept);
    Failure verify(Items* pItems, std::vector<Item*>* pSpoiled);

    os::FileSystem& mFileSystem;
    QString mPath;
    os::PrivateFolder mFolder;
    QSet<QByteArray> mKept;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
};

} // namespace tarn::vkservice::update
