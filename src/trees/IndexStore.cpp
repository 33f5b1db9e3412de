#include "trees/IndexStore.h"

#include "os/FileTools.h"
#include "trees/IndexText.h"
#include "tuf/Hashes.h"

#include <QtCore/QFile>

#include <fcntl.h>

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

Result<packages::IndexName> nameOfText(os::FileSystem& pFileSystem, const QString& pFile)
{
    const os::Descriptor tFile(pFileSystem,
                               pFileSystem.open(QFile::encodeName(pFile), O_RDONLY | O_NOFOLLOW));
    QByteArray tBlock(256 * 1024, Qt::Uninitialized);
    tuf::Hasher tHasher(tuf::HashAlgorithm::Sha256);
    packages::IndexName tName;
    for (ssize_t tGot = tFile.isOpen() ? 1 : -1; tGot != 0;) {
        tGot = tFile.isOpen()
                   ? pFileSystem.read(tFile.fd(), tBlock.data(), static_cast<size_t>(tBlock.size()))
                   : -1;
        if (tGot < 0) {
            return Failure::fromErrno(errno, u"read %1"_s.arg(pFile));
        }
        tHasher.add(QByteArrayView(tBlock).first(tGot));
        tName.mLength += tGot;
    }
    tName.mHash = tHasher.result().front();
    return tName;
}

Failure checkRules(os::FileSystem& pFileSystem, const QString& pFile, const IndexLimits& pLimits)
{
    IndexReader tReader(pFileSystem);
    Failure tFailure = tReader.open(pFile, pLimits);
    IndexEntry tEntry;
    while (!tFailure && tReader.next(&tEntry, &tFailure)) {
    }
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
    return mFolder.sizeOf(fileName(pName, sStored)) > 0;
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
                               const IndexLimits& pLimits)
{
    discardText(pName);
    packages::IndexName tFound;
    Failure tFailure = unpackIndex(mFileSystem, pFile, textPath(pName), &tFound);
    if (!tFailure) {
        tFailure = tFound == pName ? takeText(textPath(pName), pName, pLimits) : wrongText();
    }
    discardText(pName);
    return tFailure;
}

Failure IndexStore::takeText(const QString& pFile, const packages::IndexName& pName,
                             const IndexLimits& pLimits)
{
    const Result<packages::IndexName> tFound = nameOfText(mFileSystem, pFile);
    if (!tFound) {
        return tFound.failure();
    }
    if (!(*tFound == pName)) {
        return wrongText();
    }
    if (Failure tFailure = mFolder.remove(fileName(pName, sNew))) {
        return tFailure;
    }
    Failure tFailure = packIndexFile(mFileSystem, pFile, path(pName, sNew));
    if (!tFailure) {
        tFailure = store(pName, pLimits);
    }
    if (tFailure) {
        (void)mFolder.remove(fileName(pName, sNew)); // it only takes space, and keepOnly() tries again
    }
    return tFailure;
}

Failure IndexStore::store(const packages::IndexName& pName, const IndexLimits& pLimits)
{
    if (Failure tFailure = checkRules(mFileSystem, path(pName, sNew), pLimits)) {
        return tFailure;
    }
    if (mFileSystem.rename(QFile::encodeName(path(pName, sNew)), QFile::encodeName(pathOf(pName))) != 0) {
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
