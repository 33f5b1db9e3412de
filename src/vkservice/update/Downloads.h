#pragma once

#include "update/Plan.h"
#include "update/Reporter.h"
#include "update/Source.h"

namespace tarn::vkservice::update {

class ArchiveFile;

// The archives of a plan, in the folder of downloads. What lies there from an earlier run, or from another
// server, is used; what can't be verified is removed.
class Downloads
{
public:
    Downloads(os::FileSystem& pFileSystem, const QString& pStateDir, Reporter& pReporter,
              const os::AbortFlag& pAbort);

    Trouble makeFolder();
    const QString& folder() const { return mFolder; }
    QString pathOf(const Offer& pOffer) const;
    qint64 bytesToCome(const Plan& pPlan) const;

    // Gets and verifies the archive of each package that has no trouble yet, and notes in the others what is
    // wrong with them. A trouble that is returned is one of this machine or an abort, and ends the run.
    Trouble fetch(Source& pSource, Plan* pPlan);

    // Removes the archives of the packages without trouble.
    void remove(const Plan& pPlan);
    // Removes everything.
    void clear();

private:
    struct Item;
    using Items = std::vector<Item>;

    Trouble download(Source& pSource, Items* pItems);
    Trouble verify(Items* pItems, std::vector<Item*>* pSpoiled);

    os::FileSystem& mFileSystem;
    QString mFolder;
    Reporter& mReporter;
    const os::AbortFlag& mAbort;
};

} // namespace tarn::vkservice::update
