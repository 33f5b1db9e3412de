#include "publication/NewRepository.h"

#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "keys/RootDocument.h"
#include "publication/Layout.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Metadata.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <cerrno>
#include <utility>
#include <vector>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFolderMode = 0755;
constexpr mode_t sFileMode = 0644;

// Whether the repository of an interrupted run has its root.
bool hasRootOf(os::FileSystem& pFileSystem, const Beginning& pBegun)
{
    const QString tPath = versionedPath(pBegun.mRepository, tuf::sRoot, 1);
    return os::readFile(pFileSystem, tPath, pBegun.mRoot.size()).valueOr({}) == pBegun.mRoot;
}

// Nothing but empty folders, and what an interrupted run has left, may be there.
Failure checkRepository(os::FileSystem& pFileSystem, const QString& pPath, const KeyFolder& pKeys)
{
    const QString tRoot = versionedName(tuf::sRoot, 1);
    const std::optional<Beginning> tBegun = pKeys.begun();
    QStringList tThere =
        QDir(metadataFolder(pPath))
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    if (tBegun && tBegun->mRepository == pPath) {
        tThere.removeOne(tRoot + ".new"_L1);
        tThere.removeIf(
            [&](const QString& pName) { return pName == tRoot && hasRootOf(pFileSystem, *tBegun); });
    }
    return tThere.isEmpty() ? Failure() : Failure::content(u"%1 already contains a repository"_s.arg(pPath));
}

Failure checkPlaces(const QString& pRepository, const QString& pKeys)
{
    if (isInside(pKeys, pRepository)) {
        return Failure::content(
            u"The key folder %1 is in the repository, whose files are public"_s.arg(pKeys));
    }
    return isInside(pRepository, pKeys)
               ? Failure::content(
                     u"The repository %1 is in the key folder, which nobody else can read"_s.arg(pRepository))
               : Failure();
}

using RoleKeys = std::vector<std::pair<QString, KeyFile>>; // role and key

Result<RoleKeys> makeKeys(const NewRepository& pNew, Passphrases* pPassphrases)
{
    RoleKeys tKeys;
    for (const QString& tRole : roleNames()) {
        const bool tIsShared = tRole == tuf::sRoot || tRole == tuf::sTargets;
        for (int i = 0; i < (tIsShared ? pNew.mCount : 1); ++i) {
            const Result<KeyFile> tKey = makeKey(pNew.mKeys, pPassphrases);
            if (!tKey) {
                return tKey.failure();
            }
            tKeys.emplace_back(tRole, *tKey);
        }
    }
    return tKeys;
}

Result<QByteArray> makeRoot(const NewRepository& pNew, const RoleKeys& pKeys)
{
    RootDocument tRoot;
    QList<Signer> tSigners;
    for (const auto& [tRole, tKey] : pKeys) {
        tRoot.addKey(tRole, tKey.mSigner.publicJson());
        if (tRole == tuf::sRoot) {
            tSigners.append(tKey.mSigner);
        }
        tRoot.setThreshold(tRole, tRole == tuf::sRoot || tRole == tuf::sTargets ? pNew.mThreshold : 1);
    }
    return signCanonical(tRoot.payload(1, pNew.mRootExpires), tSigners);
}

Failure makeFolders(os::FileSystem& pFileSystem, const QString& pRepository)
{
    const Failure tFailure = os::makePath(pFileSystem, metadataFolder(pRepository), sFolderMode);
    return tFailure ? tFailure : os::makePath(pFileSystem, targetsFolder(pRepository), sFolderMode);
}

// With what is to be removed if this is interrupted: first it is removed of the run before.
Failure begin(os::FileSystem& pFileSystem, const Beginning& pNew, KeyFolder* pKeys)
{
    if (const std::optional<Beginning> tBegun = pKeys->begun(); tBegun && hasRootOf(pFileSystem, *tBegun)) {
        const QString tRoot = versionedPath(tBegun->mRepository, tuf::sRoot, 1);
        if (pFileSystem.unlink(QFile::encodeName(tRoot)) != 0) {
            return Failure::fromErrno(errno, u"remove %1"_s.arg(tRoot));
        }
    }
    return pKeys->begin(pNew);
}

// Keys first, then the root, then the record.
Failure make(os::FileSystem& pFileSystem, const NewRepository& pNew, KeyFolder* pKeys)
{
    const Result<RoleKeys> tKeys = makeKeys(pNew, &pKeys->passphrases());
    const Result<QByteArray> tRoot = tKeys ? makeRoot(pNew, *tKeys) : tKeys.failure();
    if (!tRoot) {
        return tRoot.failure();
    }
    Beginning tBeginning{.mRepository = pNew.mPath, .mRoot = *tRoot, .mKeys = {}};
    for (const auto& [tRole, tKey] : *tKeys) {
        tBeginning.mKeys.append(KeyFolder::nameOf(tRole, tKey));
    }
    if (Failure tFailure = begin(pFileSystem, tBeginning, pKeys)) {
        return tFailure;
    }
    for (const auto& [tRole, tKey] : *tKeys) {
        if (Failure tFailure = pKeys->addKey(tRole, tKey)) {
            return tFailure;
        }
    }
    if (Failure tFailure =
            os::replaceFile(pFileSystem, versionedPath(pNew.mPath, tuf::sRoot, 1), *tRoot, sFileMode)) {
        return tFailure;
    }
    pKeys->mRecord.mVersions[tuf::sRoot] = 1;
    pKeys->mRecord.mRoot = *tRoot;
    return pKeys->save();
}

} // namespace

Failure makeRepository(os::FileSystem& pFileSystem, const NewRepository& pNew, KeyFolder* pKeys)
{
    Failure tFailure = checkPlaces(pNew.mPath, pKeys->path());
    tFailure = tFailure ? tFailure : checkRepository(pFileSystem, pNew.mPath, *pKeys);
    tFailure = tFailure ? tFailure : pKeys->checkEmpty();
    // Before there is a folder that would stay if nobody gives one.
    if (!tFailure && pNew.mKeys.mEncrypt) {
        tFailure = pKeys->passphrases().forNew().failure();
    }
    tFailure = tFailure ? tFailure : pKeys->create();
    tFailure = tFailure ? tFailure : makeFolders(pFileSystem, pNew.mPath);
    tFailure = tFailure ? tFailure : pKeys->lockRepository(metadataFolder(pNew.mPath));
    // Whoever had the lock may have filled it.
    tFailure = tFailure ? tFailure : checkRepository(pFileSystem, pNew.mPath, *pKeys);
    return tFailure ? tFailure : make(pFileSystem, pNew, pKeys);
}

} // namespace tarn::vkpublish
