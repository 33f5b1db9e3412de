#include "trees/InstalledFiles.h"

#include "os/FileId.h"
#include "trees/OldFile.h"

#include <QtCore/QDirIterator>
#include <QtCore/QFile>

#include <algorithm>

using namespace Qt::StringLiterals;

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
    if (!(tPackage->mTree.name() == pName)) {
        return Failure::content(u"%1 is not the index that its package names"_s.arg(pIndexFile));
    }
    addPackage(std::move(tPackage));
    return {};
}

void InstalledFiles::addUnindexed(const QString& pFolder, const QSet<qint64>& pSizes,
                                  const os::AbortFlag* pAbort)
{
    auto tPackage = std::make_unique<Package>();
    tPackage->mFolder = pFolder;
    OldFiles tFiles(mFileSystem);
    QDirIterator tIt(pFolder, QDir::Files | QDir::Hidden | QDir::NoSymLinks, QDirIterator::Subdirectories);
    while (tIt.hasNext()) {
        const QByteArray tPath = QFile::encodeName(tIt.next().mid(pFolder.size() + 1));
        const OldFile tFile =
            pSizes.contains(tIt.fileInfo().size()) ? tFiles.open(pFolder, tPath) : OldFile();
        const std::optional<tuf::Hash> tHash =
            tFile.mFile.isOpen() ? hashOf(mFileSystem, tFile.mFile.fd(), pAbort) : std::nullopt;
        if (tHash) {
            tPackage->mTree.append({.mPath = tPath,
                                    .mKind = EntryKind::File,
                                    .mTarget = {},
                                    .mIsExecutable = (tFile.mStat.st_mode & 0111) != 0,
                                    .mTime = tFile.mStat.st_mtime,
                                    .mSize = tFile.mStat.st_size,
                                    .mHash = *tHash,
                                    .mAt = 0});
        }
    }
    addPackage(std::move(tPackage));
}

void InstalledFiles::addPackage(std::unique_ptr<Package> pPackage)
{
    const auto tFolder = os::fileIdAt(QFile::encodeName(pPackage->mFolder));
    pPackage->mDevice = tFolder ? tFolder->mDevice : 0;
    mPackages.push_back(std::move(pPackage));
    const Tree& tTree = mPackages.back()->mTree;
    const auto tOld = static_cast<ptrdiff_t>(mItems.size());
    for (size_t tEntry = 0; tEntry < tTree.count(); ++tEntry) {
        if (tTree.at(tEntry).mKind == EntryKind::File && tTree.at(tEntry).mSize > 0) {
            mItems.push_back({static_cast<quint32>(mPackages.size() - 1), static_cast<quint32>(tEntry)});
        }
    }
    const auto tIsBefore = [this](const Item& pLeft, const Item& pRight) {
        return nodeOf(pLeft).mHash < nodeOf(pRight).mHash;
    };
    std::sort(mItems.begin() + tOld, mItems.end(), tIsBefore);
    std::inplace_merge(mItems.begin(), mItems.begin() + tOld, mItems.end(), tIsBefore);
}

std::vector<InstalledFiles::Place> InstalledFiles::find(const Tree::Node& pFile) const
{
    std::vector<Place> tPlaces;
    auto tIt = std::partition_point(mItems.begin(), mItems.end(),
                                    [&](const Item& pItem) { return nodeOf(pItem).mHash < pFile.mHash; });
    for (; tIt != mItems.end() && nodeOf(*tIt).mHash == pFile.mHash; ++tIt) {
        if (nodeOf(*tIt).mSize == pFile.mSize) {
            tPlaces.push_back({mPackages[tIt->mPackage].get(), &nodeOf(*tIt)});
        }
    }
    std::stable_partition(tPlaces.begin(), tPlaces.end(),
                          [&pFile](const Place& pPlace) { return pPlace.canBeLinked(pFile); });
    return tPlaces;
}

const InstalledFiles::Package* InstalledFiles::withIndex(const packages::IndexName& pName) const
{
    const auto tFound = std::find_if(mPackages.begin(), mPackages.end(),
                                     [&pName](const auto& pPackage) { return pPackage->mIndex == pName; });
    return tFound == mPackages.end() ? nullptr : tFound->get();
}

} // namespace tarn::trees
