#pragma once

#include "trees/Tree.h"

#include <QtCore/QSet>

#include <memory>
#include <optional>

namespace tarn::os {
class AbortFlag;
}

namespace tarn::trees {

// The files of the installed packages by their hashes, as the indexes of the packages name them. Whether a
// file still is what its index says is checked when it is used. May be read by several threads.
class InstalledFiles
{
public:
    explicit InstalledFiles(os::FileSystem& pFileSystem) : mFileSystem(pFileSystem) {}

    struct Package
    {
        QString mFolder; // absolute
        std::optional<packages::IndexName> mIndex;
        dev_t mDevice = 0;
        Tree mTree;
    };
    struct Place
    {
        const Package* mPackage;
        const Tree::Node* mNode;

        QByteArray path() const { return mPackage->mTree.path(*mNode); }
        // Whether it should have the mode and time of the other, as far as is known without looking.
        bool canBeLinked(const Tree::Node& pNew) const
        {
            return mPackage->mIndex && mNode->mTime == pNew.mTime &&
                   mNode->mIsExecutable == pNew.mIsExecutable;
        }
    };

    // A package with its packed index. Its files are of no use if the index cannot be read, or is not the one
    // with this name.
    Failure add(const QString& pFolder, const QString& pIndexFile, const packages::IndexName& pName,
                const IndexLimits& pLimits);
    // A package without an index: its files of these sizes are hashed.
    void addUnindexed(const QString& pFolder, const QSet<qint64>& pSizes,
                      const os::AbortFlag* pAbort = nullptr);

    // All files that should have this hash, those that can be linked first.
    std::vector<Place> find(const Tree::Node& pFile) const;
    // None if no package has this index.
    const Package* withIndex(const packages::IndexName& pName) const;

private:
    struct Item
    {
        quint32 mPackage;
        quint32 mEntry;
    };
    const Tree::Node& nodeOf(const Item& pItem) const
    {
        return mPackages[pItem.mPackage]->mTree.at(pItem.mEntry);
    }

    void addPackage(std::unique_ptr<Package> pPackage);

    os::FileSystem& mFileSystem;
    std::vector<std::unique_ptr<const Package>> mPackages;
    std::vector<Item> mItems; // sorted by hash
};

} // namespace tarn::trees
