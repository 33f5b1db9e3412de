// The keys of the folder: which are here, and how each signs.
#include "keys/KeyFolder.h"

#include "keys/Roles.h"
#include "keys/RootDocument.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Metadata.h"

#include <QtCore/QFileInfo>

#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0600;
constexpr qint64 sMaxKeyLength = 64 * 1024;
constexpr qsizetype sIdInName = 16; // of the characters of a key's id

// Without its suffix.
QString keyFileName(const QString& pRole, const QString& pId)
{
    return u"%1-%2"_s.arg(pRole, pId.left(sIdInName));
}

} // namespace

QString KeyFolder::commandPath(const QString& pName) const
{
    return filePath(pName.left(pName.lastIndexOf(u'.'))) + sSignerSuffix;
}

bool KeyFolder::isHere(const QString& pId) const
{
    const auto tSource = mRecord.mKeys.constFind(pId);
    return tSource != mRecord.mKeys.constEnd() &&
           (QFileInfo::exists(filePath(tSource->mFile)) || QFileInfo::exists(commandPath(tSource->mFile)));
}

QStringList KeyFolder::here(QStringList pIds) const
{
    pIds.removeIf([this](const QString& pId) { return !isHere(pId); });
    return pIds;
}

bool KeyFolder::isGone(const QString& pId) const
{
    if (mRecord.mLostKeys.contains(pId) || !mRecord.mKeys.contains(pId) || isHere(pId)) {
        return mRecord.mLostKeys.contains(pId);
    }
    const Result<RootDocument> tRoot = RootDocument::read(mRecord.mRoot);
    return tRoot && tRoot->publicJson(pId).isEmpty();
}

Result<QByteArray> KeyFolder::readPrivate(const QString& pPath) const
{
    if (Failure tFailure = checkPrivate(pPath)) {
        return tFailure;
    }
    return os::readFile(mFileSystem, pPath, sMaxKeyLength);
}

// Those that were not opened before, into mOpened.
Failure KeyFolder::openAll(QStringList pNames) const
{
    pNames.removeDuplicates();
    pNames.removeIf([this](const QString& pName) { return mOpened.contains(pName); });
    const Result<QList<Signer>> tSigners = openKeyFiles(pNames);
    if (!tSigners) {
        return tSigners.failure();
    }
    for (qsizetype i = 0; i < pNames.size(); ++i) {
        const QString& tName = pNames[i];
        if (tSigners->at(i).id().left(sIdInName) != tName.section(u'-', -1).section(u'.', 0, 0)) {
            return Failure::content(u"%1 has another key than its name says"_s.arg(filePath(tName)));
        }
        mOpened.insert(tName, tSigners->at(i));
    }
    return {};
}

Result<QList<Signer>> KeyFolder::openKeyFiles(const QStringList& pNames) const
{
    QMap<QString, Signer> tFound;
    QStringList tPemNames;
    std::vector<KeyText> tPems;
    for (const QString& tName : pNames) {
        const bool tHasCommand = QFileInfo::exists(commandPath(tName));
        const QString tPath = tHasCommand ? commandPath(tName) : filePath(tName);
        Result<QByteArray> tContent = readPrivate(tPath);
        if (!tContent) {
            return tContent.failure();
        }
        KeyText tText(tPath, std::move(*tContent));
        if (!tHasCommand) {
            tPemNames.append(tName);
            tPems.push_back(std::move(tText));
            continue;
        }
        const Result<Signer> tSigner = readCommand(tPath, tText.mContent);
        if (!tSigner) {
            return tSigner.failure();
        }
        tFound.insert(tName, *tSigner);
    }
    const Result<QList<Signer>> tKeys = readPems(tPems, &mPassphrases);
    if (!tKeys) {
        return tKeys.failure();
    }
    for (qsizetype i = 0; i < tKeys->size(); ++i) {
        tFound.insert(tPemNames[i], tKeys->at(i));
    }
    QList<Signer> tSigners;
    for (const QString& tName : pNames) {
        tSigners.append(*tFound.constFind(tName));
    }
    return tSigners;
}

Result<QList<Signer>> KeyFolder::readSigners(const QStringList& pIds) const
{
    const QStringList tIds = here(pIds);
    QStringList tNames;
    for (const QString& tId : tIds) {
        tNames.append(mRecord.mKeys.value(tId).mFile);
    }
    if (Failure tFailure = openAll(tNames)) {
        return tFailure;
    }
    QList<Signer> tKeys;
    for (qsizetype i = 0; i < tIds.size(); ++i) {
        const auto tKey = mOpened.constFind(tNames[i]);
        if (tKey->id() != tIds[i]) {
            return Failure::content(u"%1 contains another key than %2"_s.arg(filePath(tNames[i]), tIds[i]));
        }
        tKeys.append(*tKey);
    }
    return tKeys;
}

Result<QList<Signer>> KeyFolder::readRetiringKeys(const QString& pRole) const
{
    QStringList tNames;
    for (const RetiringKey& tRetiring : mRecord.mRetiringKeys) {
        if (tRetiring.mRole == pRole && QFileInfo::exists(filePath(tRetiring.mFile))) {
            tNames.append(tRetiring.mFile);
        }
    }
    if (Failure tFailure = openAll(tNames)) {
        return tFailure;
    }
    QList<Signer> tKeys;
    for (const QString& tName : tNames) {
        tKeys.append(*mOpened.constFind(tName));
    }
    return tKeys;
}

// Sets the keys of this root whose files are in the folder, but not in the record.
void KeyFolder::findKeys(const RootDocument& pRoot)
{
    for (const QString& tRole : roleNames()) {
        for (const QString& tId : pRoot.keyIds(tRole)) {
            for (const QString& tSuffix : {sPemSuffix, sSignerSuffix}) {
                const QString tName = keyFileName(tRole, tId) + tSuffix;
                if (!mRecord.mKeys.contains(tId) && QFileInfo::exists(filePath(tName))) {
                    mRecord.mKeys.insert(tId, {.mFile = tName});
                }
            }
        }
    }
}

// A failure if this folder could sign for a role by the root of the record, and can't by the newer pRoot.
Failure KeyFolder::checkKeys(const RootDocument& pRoot) const
{
    const Result<RootDocument> tOld = RootDocument::read(mRecord.mRoot);
    if (!tOld) {
        return tOld.failure();
    }
    for (const QString& tRole : roleNames()) {
        // Several keys are those of several people.
        if (pRoot.keyIds(tRole).size() == 1 && canSign(*tOld, tRole) && !canSign(pRoot, tRole)) {
            return Failure::content(
                u"The repository has version %1 of the root, whose key for the role %2 is "
                "not in %3: restore the keys as they were after the last change of keys"_s
                    .arg(pRoot.version())
                    .arg(tRole, mPath));
        }
    }
    return {};
}

bool KeyFolder::canSign(const RootDocument& pRoot, const QString& pRole) const
{
    return here(pRoot.keyIds(pRole)).size() >= pRoot.threshold(pRole);
}

Failure KeyFolder::takeRoot(const QByteArray& pRoot)
{
    const Result<RootDocument> tRoot = RootDocument::read(pRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    findKeys(*tRoot);
    if (Failure tFailure = checkKeys(*tRoot)) {
        return tFailure;
    }
    return replaceRoot(pRoot, mRecord.mTimestampExpires);
}

Failure KeyFolder::beginWith(const QByteArray& pRoot, const QList<RetiringRoot>& pReplaced)
{
    QList<QByteArray> tRoots{pRoot};
    for (const RetiringRoot& tReplaced : pReplaced) {
        tRoots.append(tReplaced.mRoot);
    }
    for (const QByteArray& tFile : std::as_const(tRoots)) {
        const Result<RootDocument> tRoot = RootDocument::read(tFile);
        if (!tRoot) {
            return tRoot.failure();
        }
        findKeys(*tRoot);
    }
    mRecord.mRoot = pRoot;
    mRecord.mRetiringRoots = pReplaced;
    return {};
}

Failure KeyFolder::replaceRoot(const QByteArray& pRoot, const QDateTime& pUntil)
{
    const Result<RootDocument> tOld = RootDocument::read(mRecord.mRoot);
    const Result<RootDocument> tNew = RootDocument::read(pRoot);
    if (!tOld || !tNew) {
        return tOld ? tNew.failure() : tOld.failure();
    }
    if (!tNew->signsLike(*tOld)) {
        mRecord.mRetiringRoots.append({mRecord.mRoot, pUntil});
    }
    dropMissingKeys(*tOld, *tNew);
    mRecord.mVersions[tuf::sRoot] = tNew->version();
    mRecord.mRoot = pRoot;
    return {};
}

// A key of these roots whose file is missing was moved to the machine of its owner: from now on it is
// elsewhere. One that was replaced before has been deleted. Whoever is in the new root can sign.
void KeyFolder::dropMissingKeys(const RootDocument& pOld, const RootDocument& pNew)
{
    mRecord.mLostKeys.removeIf([&](const QString& pId) { return !pNew.publicJson(pId).isEmpty(); });
    const QStringList tIds = mRecord.mKeys.keys();
    for (const QString& tId : tIds) {
        if (isHere(tId)) {
            continue;
        }
        mRecord.mKeys.remove(tId);
        if (pOld.publicJson(tId).isEmpty() && pNew.publicJson(tId).isEmpty()) {
            mRecord.mLostKeys.append(tId);
        }
    }
}

QString KeyFolder::nameOf(const QString& pRole, const KeyFile& pKey)
{
    return keyFileName(pRole, pKey.mSigner.id()) + pKey.mSuffix;
}

Failure KeyFolder::addKey(const QString& pRole, const KeyFile& pKey)
{
    const QString tName = nameOf(pRole, pKey);
    if (Failure tFailure = os::replaceFile(mFileSystem, filePath(tName), pKey.mContent, sFileMode)) {
        return tFailure;
    }
    mRecord.mKeys.insert(pKey.mSigner.id(), {.mFile = tName});
    mOpened.insert(tName, pKey.mSigner);
    return {};
}

} // namespace tarn::vkpublish
