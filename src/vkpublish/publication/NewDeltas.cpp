#include "publication/NewDeltas.h"

#include "deltas/DeltaMaker.h"
#include "publication/FileMatch.h"
#include "publication/Layout.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QSet>

#include <malloc.h>

#include <algorithm>
#include <cerrno>
#include <optional>
#include <thread>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

using packages::DeltaFile;
using packages::PackageInfo;

namespace {

constexpr mode_t sPrivate = 0700;
constexpr unsigned sMostThreads = 2; // each takes 35 MiB
constexpr qint64 sMostPercent = 90;  // of the archive; a delta of as many saves too little

// Large blocks of memory go back to the system as soon as they are free. The C library would keep some of the
// tables that deltas take, more than 100 MiB with all the others. Everything else is faster if it keeps them.
class SpareMemory
{
public:
    SpareMemory() { ::mallopt(M_MMAP_THRESHOLD, 1024 * 1024); }
    ~SpareMemory() { ::mallopt(M_MMAP_THRESHOLD, 32 * 1024 * 1024); } // the most that the library takes
    SpareMemory(const SpareMemory&) = delete;
    SpareMemory& operator=(const SpareMemory&) = delete;
};

} // namespace

NewDeltas::NewDeltas(os::FileSystem& pFileSystem, const QString& pRepository, KeyFolder& pKeys)
    : mFileSystem(pFileSystem), mTargets(targetsFolder(pRepository)), mRepository(pRepository), mKeys(pKeys)
{
}

NewDeltas::~NewDeltas()
{
    (void)os::removeTree(mFileSystem, scratch()); // the next publication tries again
}

QString NewDeltas::scratch() const
{
    return mKeys.path() + "/scratch"_L1;
}

Failure NewDeltas::make(int pCount)
{
    if (Failure tFailure = mKeys.lockRepository(metadataFolder(mRepository))) {
        return tFailure;
    }
    if (Failure tFailure = os::removeTree(mFileSystem, scratch())) {
        return tFailure;
    }
    for (const QString& tName : mKeys.mRecord.mTargets.keys()) {
        if (Failure tFailure = makeFor(tName, pCount)) {
            return tFailure;
        }
    }
    return {};
}

std::optional<NewDeltas::Version> NewDeltas::versionOf(const QString& pName, const QJsonObject& pTarget) const
{
    const std::optional<PackageInfo> tInfo = infoOf(pTarget);
    if (!tInfo || !tInfo->mIndex) {
        return std::nullopt;
    }
    Version tVersion;
    tVersion.mInfo = *tInfo;
    tVersion.mArchive = targetPath(mRepository, pName, pTarget);
    tVersion.mArchiveSize = pTarget["length"_L1].toInteger();
    return tVersion;
}

bool NewDeltas::isThere(const packages::SideFile& pFile, const QString& pName) const
{
    return !fileMatches(mTargets + u'/' + pName, pFile.mLength, {pFile.mHash});
}

// What is damaged is there, too: the publisher has to know of it.
bool NewDeltas::isThere(const Version& pVersion) const
{
    return QFile::exists(indexPath(pVersion)) && QFile::exists(pVersion.mArchive);
}

// All versions before this one, the newest first; the files of some may be gone.
QList<NewDeltas::Version> NewDeltas::versionsBefore(const Version& pNew) const
{
    const Record& tRecord = mKeys.mRecord;
    QList<Version> tBases;
    QSet<QByteArray> tKnown{pNew.mInfo.mIndex->mText.mHash.toHex()};
    for (const TargetList* tTargets :
         {&tRecord.mTargets, &tRecord.mPublishedTargets, &tRecord.mWithdrawnTargets}) {
        for (const QString& tArchive : tTargets->keysWithPrefix(pNew.mInfo.mName + u'-')) {
            const std::optional<Version> tOld = versionOf(tArchive, (*tTargets)[tArchive].toObject());
            if (!tOld || tOld->mInfo.mName != pNew.mInfo.mName ||
                tOld->mInfo.mLanguage != pNew.mInfo.mLanguage ||
                !(tOld->mInfo.mVersion < pNew.mInfo.mVersion)) {
                continue;
            }
            const QByteArray tText = tOld->mInfo.mIndex->mText.mHash.toHex();
            if (!tKnown.contains(tText)) {
                tKnown.insert(tText);
                tBases.append(*tOld);
            }
        }
    }
    std::stable_sort(tBases.begin(), tBases.end(), [](const Version& pOne, const Version& pOther) {
        return pOne.mInfo.mVersion > pOther.mInfo.mVersion;
    });
    return tBases;
}

Failure NewDeltas::makeFor(const QString& pName, int pCount)
{
    const QByteArray tText = mKeys.mRecord.mTargets.text(pName);
    const bool tIsPublished = mKeys.mRecord.mPublishedTargets.text(pName) == tText;
    if (tIsPublished && !tText.contains("\"deltas\":")) {
        return {};
    }
    const QJsonObject tTarget = mKeys.mRecord.mTargets[pName].toObject();
    std::optional<Version> tNew = versionOf(pName, tTarget);
    if (!tNew) {
        return {};
    }
    tNew->mInfo.mDeltas.removeIf([&](const DeltaFile& pDelta) {
        return tIsPublished ? QFileInfo(mTargets + u'/' + pDelta.name()).size() != pDelta.mFile.mLength
                            : !isThere(pDelta.mFile, pDelta.name());
    });
    const QJsonObject tPublished = mKeys.mRecord.mPublishedTargets[pName].toObject();
    if (tPublished.isEmpty() || asAdded(tPublished) != asAdded(tTarget)) {
        QList<DeltaFile> tDeltas;
        if (Failure tFailure = makeAll(*tNew, pCount, &tDeltas)) {
            return tFailure;
        }
        tNew->mInfo.mDeltas = tDeltas;
    }
    const QJsonObject tNamed = withInfo(tTarget, tNew->mInfo);
    if (tNamed == tTarget) {
        return {};
    }
    mKeys.mRecord.mTargets.insert(pName, tNamed);
    return mKeys.savePackage(pName);
}

Failure NewDeltas::makeAll(const Version& pNew, int pCount, QList<DeltaFile>* pTo)
{
    const QString tScratch = scratch() + "/new"_L1;
    std::optional<SpareMemory> tSpare; // from the first delta on
    std::unique_ptr<PackageVersion> tNew;
    int tLeft = pCount;
    for (const Version& tBase : versionsBefore(pNew)) {
        if (tLeft == 0) {
            break;
        }
        const auto tFound =
            std::find_if(pNew.mInfo.mDeltas.begin(), pNew.mInfo.mDeltas.end(),
                         [&](const DeltaFile& pDelta) { return pDelta.mFrom == tBase.mInfo.mIndex->mText; });
        if (tFound != pNew.mInfo.mDeltas.end()) {
            pTo->append(*tFound);
            --tLeft;
            continue;
        }
        if (!isThere(tBase)) {
            continue;
        }
        --tLeft;
        if (!tNew) {
            tSpare.emplace();
            if (Failure tFailure = os::makePath(mFileSystem, scratch(), sPrivate)) {
                return tFailure;
            }
            tNew = std::make_unique<PackageVersion>(mFileSystem);
            if (Failure tFailure = open(pNew, tScratch, tNew.get())) {
                return tFailure;
            }
        }
        const qint64 tMost = pNew.mArchiveSize * sMostPercent / 100;
        if (Failure tFailure = makeOne(tBase, *tNew, tMost, pTo)) {
            return tFailure;
        }
    }
    return {};
}

Failure NewDeltas::makeOne(const Version& pOld, PackageVersion& pNew, qint64 pMostBytes,
                           QList<DeltaFile>* pTo)
{
    PackageVersion tOld(mFileSystem);
    if (Failure tFailure = open(pOld, scratch() + "/old"_L1, &tOld)) {
        return tFailure;
    }
    const QString tUnnamed = mTargets + "/.delta.new"_L1;
    const auto tThreads = static_cast<int>(std::min(std::thread::hardware_concurrency(), sMostThreads));
    DeltaResult tResult;
    if (Failure tFailure = makeDelta(mFileSystem, tOld, pNew, tThreads, pMostBytes, tUnnamed, &tResult)) {
        return tFailure;
    }
    if (tResult.mLength == 0) {
        return {};
    }
    const DeltaFile tDelta{.mFile = {.mLength = tResult.mLength, .mHash = tResult.mHash},
                           .mFrom = tOld.index()};
    if (tResult.mLength >= pMostBytes) {
        mFileSystem.unlink(QFile::encodeName(tUnnamed));
        return {};
    }
    const QString tPath = mTargets + u'/' + tDelta.name();
    if (mFileSystem.rename(QFile::encodeName(tUnnamed), QFile::encodeName(tPath)) != 0) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(tPath));
    }
    pTo->append(tDelta);
    ++mMade;
    return os::syncDir(mFileSystem, mTargets);
}

Failure NewDeltas::open(const Version& pVersion, const QString& pScratch, PackageVersion* pTo)
{
    // To open a pipe would wait for its writer. What the archive contains is proven by the index.
    if (!QFileInfo(pVersion.mArchive).isFile()) {
        return Failure::content(u"%1 is no file"_s.arg(pVersion.mArchive));
    }
    const packages::SideFile& tFile = pVersion.mInfo.mIndex->mFile;
    const QString tIndex = indexPath(pVersion);
    if (Failure tFailure = fileMatches(tIndex, tFile.mLength, {tFile.mHash})) {
        return tFailure;
    }
    return pTo->open(tIndex, pVersion.mArchive,
                     {.mMaxBytes = pVersion.mInfo.mInstalledSize, .mArchiveSize = pVersion.mArchiveSize},
                     pScratch);
}

QString NewDeltas::indexPath(const Version& pVersion) const
{
    return mTargets + u'/' + pVersion.mInfo.mIndex->name();
}

} // namespace tarn::vkpublish
