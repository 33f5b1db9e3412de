#include "trees/IndexStore.h"

#include "os/FileTools.h"
#include "trees/IndexText.h"

#include <QtCore/QFile>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::trees {

namespace {

constexpr char sStored[] = ".zst";
constexpr char sNew[] = ".zst.new";
constexpr char sText[] = ".text";

Failure wrongText()
{
    return Failure::content(u"The index is not the one that its package names"_s);
}

// Reads all of it, so that it is known to keep the rules of an index.
Failure readAll(os::FileSystem& pFileSystem, const QString& pFile, const IndexLimits& pLimits,
                packages::IndexName* pName)
{
    IndexReader tReader(pFileSystem);
    Failure tFailure = tReader.open(pFile, pLimits);
    IndexEntry tEntry;
    while (!tFailure && tReader.next(&tEntry, &tFailure)) {
    }
    *pName = tReader.name();
    return tFailure;
}

} // namespace

IndexStore::IndexStore(os::FileSystem& pFileSystem, const QString& pStateDir)
    : mFileSystem(pFileSystem), mPath(pStateDir + u"/indexes"_s), mFolder(pFileSystem)
{
}

Failure IndexStore::open()
{
    return mFolder.open(mPath);
}

QByteArray IndexStore::fileName(const packages::IndexName& pName, const char* pSuffix)
{
    return pName.mHash.toHex() + pSuffix;
}

QString IndexStore::path(const packages::IndexName& pName, const char* pSuffix) const
{
    return mFolder.pathOf(fileName(pName, pSuffix));
}

bool IndexStore::has(const packages::IndexName& pName) const
{
    const Result<packages::IndexName> tFound = nameOfIndex(mFileSystem, pathOf(pName));
    return tFound && *tFound == pName;
}

QString IndexStore::pathOf(const packages::IndexName& pName) const
{
    return path(pName, sStored);
}

QString IndexStore::textPath(const packages::IndexName& pName) const
{
    return path(pName, sText);
}

void IndexStore::discardText(const packages::IndexName& pName)
{
    (void)mFolder.remove(fileName(pName, sText)); // it only takes space, and keepOnly() tries again
}

Failure IndexStore::unpack(const packages::IndexName& pName)
{
    discardText(pName);
    packages::IndexName tFound;
    Failure tFailure = unpackIndex(mFileSystem, pathOf(pName), textPath(pName), &tFound);
    return tFailure || tFound == pName ? tFailure : wrongText();
}

Failure IndexStore::takePacked(const QString& pFile, const packages::IndexName& pName,
                               const IndexLimits& pLimits, Tree* pTree)
{
    discardText(pName);
    packages::IndexName tFound;
    Failure tFailure = unpackIndex(mFileSystem, pFile, textPath(pName), &tFound);
    tFailure = tFailure ? tFailure : takeText(textPath(pName), pName, pLimits, pTree);
    discardText(pName);
    return tFailure;
}

Failure IndexStore::takeText(const QString& pFile, const packages::IndexName& pName,
                             const IndexLimits& pLimits, Tree* pTree)
{
    if (Failure tFailure = mFolder.remove(fileName(pName, sNew))) {
        return tFailure;
    }
    Failure tFailure = packIndexFile(mFileSystem, pFile, path(pName, sNew));
    tFailure = tFailure ? tFailure : store(pName, pLimits, pTree);
    if (tFailure) {
        (void)mFolder.remove(fileName(pName, sNew)); // it only takes space, and keepOnly() tries again
    }
    return tFailure;
}

// Proves what was written, so that nothing can change between the two.
Failure IndexStore::store(const packages::IndexName& pName, const IndexLimits& pLimits, Tree* pTree)
{
    const QString tNew = path(pName, sNew);
    packages::IndexName tFound;
    Failure tFailure = pTree != nullptr ? pTree->read(mFileSystem, tNew, pLimits)
                                        : readAll(mFileSystem, tNew, pLimits, &tFound);
    tFound = pTree != nullptr ? pTree->name() : tFound;
    if (tFailure || !(tFound == pName)) {
        return tFailure ? tFailure : wrongText();
    }
    if (mFileSystem.rename(QFile::encodeName(tNew), QFile::encodeName(pathOf(pName))) != 0) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(pathOf(pName)));
    }
    return os::syncDir(mFileSystem, mPath);
}

void IndexStore::keepOnly(const QSet<QByteArray>& pTextHashes)
{
    const QList<QByteArray> tNames = mFolder.names();
    for (const QByteArray& tName : tNames) {
        const QByteArray tHash = tName.first(std::max<qsizetype>(tName.indexOf('.'), 0));
        if (!pTextHashes.contains(tHash) || !tName.endsWith(sStored)) {
            (void)mFolder.remove(tName); // it only takes space, and the next run tries again
        }
    }
}

} // namespace tarn::trees
