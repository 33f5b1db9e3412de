#include "trees/InstalledFiles.h"

#include "trees/OldFile.h"

#include <QtCore/QDirIterator>
#include <QtCore/QFile>

#include <algorithm>

namespace tarn::trees {

Failure InstalledFiles::add(const QString& pFolder, const QString& pIndexFile,
                            const packages::IndexName& pName, const IndexLimits& pLimits)
{
    auto tPackage = std::make_unique<Package>();
    tPackage->mFolder = pFolder;
    tPackage->mIndex = pName;
    if (Failure tFailure = tPackage->mTree.read(mFileSystem, pIndexFile, pLimits)) {
        return tFailure;
    }
    addItems(*tPackage);
    mPackages.push_back(std::move(tPackage));
    return {};
}

void InstalledFiles::addUnindexed(const QString& pFolder, const QSet<qint64>& pSizes)
{
    auto tPackage = std::make_unique<Package>();
    tPackage->mFolder = pFolder;
    QDirIterator tIt(pFolder, QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDirIterator::Subdirectories);
    while (tIt.hasNext()) {
        const QByteArray tPath = QFile::encodeName(tIt.next().mid(pFolder.size() + 1));
        struct stat tStat;
        const os::Descriptor tFile = pSizes.contains(tIt.fileInfo().size())
                                         ? openInstalled(mFileSystem, pFolder, tPath, &tStat)
                                         : os::Descriptor();
        const std::optional<tuf::Hash> tHash =
            tFile.isOpen() ? hashOf(mFileSystem, tFile.fd()) : std::nullopt;
        if (tHash) {
            tPackage->mTree.append({.mPath = tPath,
                                    .mKind = EntryKind::File,
                                    .mTarget = {},
                                    .mIsExecutable = (tStat.st_mode & 0111) != 0,
                                    .mTime = tStat.st_mtime,
                                    .mSize = tStat.st_size,
                                    .mHash = *tHash,
                                    .mAt = 0});
        }
    }
    addItems(*tPackage);
    mPackages.push_back(std::move(tPackage));
}

void InstalledFiles::addItems(const Package& pPackage)
{
    for (size_t tEntry = 0; tEntry < pPackage.mTree.count(); ++tEntry) {
        const Tree::Node& tNode = pPackage.mTree.at(tEntry);
        if (tNode.mKind == EntryKind::File && tNode.mSize > 0) {
            mItems.push_back(
                {tNode.mHash, static_cast<quint32>(mPackages.size()), static_cast<quint32>(tEntry)});
        }
    }
    std::stable_sort(mItems.begin(), mItems.end(),
                     [](const Item& pLeft, const Item& pRight) { return pLeft.mHash < pRight.mHash; });
}

std::vector<InstalledFiles::Place> InstalledFiles::find(const Tree::Node& pFile) const
{
    std::vector<Place> tPlaces;
    auto tIt =
        std::lower_bound(mItems.begin(), mItems.end(), pFile.mHash,
                         [](const Item& pItem, const Tree::Digest& pHash) { return pItem.mHash < pHash; });
    for (; tIt != mItems.end() && tIt->mHash == pFile.mHash; ++tIt) {
        const Package& tPackage = *mPackages[tIt->mPackage];
        const Tree::Node& tNode = tPackage.mTree.at(tIt->mEntry);
        if (tNode.mSize == pFile.mSize) {
            tPlaces.push_back({&tPackage, &tNode});
        }
    }
    return tPlaces;
}

const InstalledFiles::Package* InstalledFiles::withIndex(const packages::IndexName& pName) const
{
    const auto tFound = std::find_if(mPackages.begin(), mPackages.end(),
                                     [&pName](const auto& pPackage) { return pPackage->mIndex == pName; });
    return tFound == mPackages.end() ? nullptr : tFound->get();
}

} // namespace tarn::trees
