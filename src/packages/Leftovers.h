#pragma once

#include "packages/GenerationReader.h"

#include <functional>
#include <vector>

namespace tarn::packages {

class Roots;

// Those of some package folders (absolute paths) that must be kept for now; called once per removal. After a
// failure all of them are kept.
using PutOff = std::function<Result<QStringList>(const QStringList&)>;

// What is no longer needed: package folders of superseded generations, and unused ones that a run recorded.
// Only what a manifest of this installation names is considered. A generation is removed when all of its
// package folders are, so that folders that are postponed, fail, or are on an unmounted disk stay recorded.
class Leftovers
{
public:
    Leftovers(os::FileSystem& pFileSystem, const PackageFolders& pFolders, const Roots& pRoots,
              GenerationReader& pReader)
        : mFileSystem(pFileSystem), mFolders(pFolders), mRoots(pRoots), mReader(pReader)
    {
    }

    // Continues after a failure and returns the first one. pProgress receives how many of how many are done.
    Failure remove(const std::function<void(int, int)>& pProgress, const PutOff& pPutOff);
    // Empties the place in which a package is to be unpacked.
    Failure removeStaging(const PackagePlace& pPlace);
    Failure removePackage(const PackagePlace& pPlace);

private:
    // The folders of one record; the record itself is removed after them.
    struct Item
    {
        QList<PackagePlace> mStagings;
        QList<PackagePlace> mPackages;
        qint64 mGeneration = 0; // 0: that of the intent
        bool mIsNeeded = false; // its record stays
    };

    Failure find(std::vector<Item>* pTo);
    Result<QStringList> putOff(const std::vector<Item>& pItems, const PutOff& pPutOff) const;
    bool removeItem(const Item& pItem, const Result<QStringList>& pPutOff);
    Failure removeGeneration(qint64 pNumber);
    bool note(const Failure& pFailure);

    os::FileSystem& mFileSystem;
    const PackageFolders& mFolders;
    const Roots& mRoots;
    GenerationReader& mReader;
    Failure mFirst;
};

} // namespace tarn::packages
