#pragma once

#include "packages/GenerationReader.h"

#include <functional>
#include <vector>

namespace tarn::packages {

class Roots;

// Those of some package folders (absolute paths) that are to stay for now; asked once, and again at the next
// removal.
using PutOff = std::function<QStringList(const QStringList&)>;

// What is no longer needed: package folders of superseded generations, and what a run announced and did not
// come to use. Whatever no manifest of this installation names is not looked at. A generation goes when all
// of its package folders have gone, so that what is put off, fails, or is on a disk that is not there now
// stays known.
class Leftovers
{
public:
    Leftovers(os::FileSystem& pFileSystem, const PackageFolders& pFolders, const Roots& pRoots,
              GenerationReader& pReader)
        : mFileSystem(pFileSystem), mFolders(pFolders), mRoots(pRoots), mReader(pReader)
    {
    }

    // Goes on behind a failure and reports the first one. pProgress gets how many of how many are done.
    Failure remove(const std::function<void(int, int)>& pProgress, const PutOff& pPutOff);
    // Empties the place in which a package is to be unpacked.
    Failure removeStaging(const PackagePlace& pPlace);
    Failure removePackage(const PackagePlace& pPlace);

private:
    // What one record names, and what becomes of the record itself when all of that has gone.
    struct Item
    {
        QList<PackagePlace> mStagings;
        QList<PackagePlace> mPackages;
        qint64 mGeneration = 0; // 0: that of the intent
    };

    Failure find(std::vector<Item>* pTo);
    QStringList putOff(const std::vector<Item>& pItems, const PutOff& pPutOff) const;
    bool removeItem(const Item& pItem, const QStringList& pPutOff);
    Failure removeGeneration(qint64 pNumber);
    bool note(const Failure& pFailure);

    os::FileSystem& mFileSystem;
    const PackageFolders& mFolders;
    const Roots& mRoots;
    GenerationReader& mReader;
    Failure mFirst;
};

} // namespace tarn::packages
