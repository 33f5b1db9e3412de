#include "keys/KeyFolder.h"

#include "keys/Roles.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Metadata.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0600;
constexpr mode_t sFolderMode = 0700;
constexpr qint64 sMaxKeyLength = 64 * 1024;
constexpr qint64 sMaxRecordLength = 256 * 1024 * 1024;

constexpr qsizetype sIdInName = 16; // of the characters of a key's id

const QString sRecordName = u"record.json"_s;
const QString sLockName = u"lock"_s;

// Without its suffix.
QString keyFileName(const QString& pRole, const QString& pId)
{
    return u"%1-%2"_s.arg(pRole, pId.left(sIdInName));
}

} // namespace

KeyFolder::KeyFolder(os::FileSystem& pFileSystem, const QString& pPath)
    : mFileSystem(pFileSystem), mPath(pPath), mPassphrases(u"the keys in %1"_s.arg(pPath))
{
}

KeyFolder::~KeyFolder()
{
    if (mLockFd >= 0) {
        ::close(mLockFd);
    }
}

QString KeyFolder::filePath(const QString& pName) const
{
    return mPath + u'/' + pName;
}

Failure KeyFolder::checkPrivate(const QString& pPath) const
{
    struct stat tStat
    {
    };
    if (::stat(QFile::encodeName(pPath).constData(), &tStat) != 0) {
        return Failure::fromErrno(errno, u"use %1"_s.arg(pPath));
    }
    if ((tStat.st_mode & 077) != 0) {
        return Failure::content(u"%1 is accessible to other users. Check who had access, then remove it: "
                                "chmod go= %1"_s.arg(pPath));
    }
    return {};
}

Failure KeyFolder::lock()
{
    mLockFd =
        ::open(QFile::encodeName(filePath(sLockName)).constData(), O_RDWR | O_CREAT | O_CLOEXEC, sFileMode);
    if (mLockFd >= 0 && ::flock(mLockFd, LOCK_EX | LOCK_NB) == 0) {
        return {};
    }
    return errno == EWOULDBLOCK ? Failure::content(u"Another vkpublish is using the keys in %1"_s.arg(mPath))
                                : Failure::fromErrno(errno, u"lock %1"_s.arg(mPath));
}

Failure KeyFolder::create()
{
    if (!QDir().mkpath(QFileInfo(mPath).absolutePath()) ||
        (mFileSystem.makeDir(QFile::encodeName(mPath), sFolderMode) != 0 && errno != EEXIST)) {
        return Failure::fromErrno(errno, u"create the key folder %1"_s.arg(mPath));
    }
    if (!QDir(mPath).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        return Failure::content(QFileInfo::exists(filePath(sRecordName))
                                    ? u"%1 already contains the keys of a repository"_s.arg(mPath)
                                    : u"The key folder %1 is not empty"_s.arg(mPath));
    }
    if (Failure tFailure = checkPrivate(mPath)) {
        return tFailure;
    }
    return lock();
}

Failure KeyFolder::open()
{
    if (!QFileInfo::exists(filePath(sRecordName))) {
        return Failure::content(
            u"The key folder %1 does not exist: name it with --keys, or create a repository with "
            "\"vkpublish init\""_s.arg(mPath));
    }
    if (Failure tFailure = checkPrivate(mPath)) {
        return tFailure;
    }
    if (Failure tFailure = lock()) {
        return tFailure;
    }
    return openForReading();
}

Failure KeyFolder::openForReading()
{
    const auto tText = os::readFile(mFileSystem, filePath(sRecordName), sMaxRecordLength);
    if (!tText) {
        return tText.failure();
    }
    if (!Record::fromJson(*tText, &mRecord)) {
        return Failure::content(u"%1 is damaged"_s.arg(filePath(sRecordName)));
    }
    return {};
}

Failure KeyFolder::save()
{
    return os::replaceFile(mFileSystem, filePath(sRecordName), mRecord.toJson(), sFileMode);
}

Result<Signer> KeyFolder::readKey(const QString& pRole) const
{
    return readKeyFile(mRecord.mKeyFiles.value(pRole));
}

Result<QByteArray> KeyFolder::readPrivate(const QString& pPath) const
{
    if (Failure tFailure = checkPrivate(pPath)) {
        return tFailure;
    }
    return os::readFile(mFileSystem, pPath, sMaxKeyLength);
}

Result<Signer> KeyFolder::readKeyFile(const QString& pName) const
{
    if (const auto tOpened = mOpened.constFind(pName); tOpened != mOpened.constEnd()) {
        return *tOpened;
    }
    Result<Signer> tSigner = openKeyFile(pName);
    if (!tSigner) {
        return tSigner;
    }
    if (tSigner->id().left(sIdInName) != pName.section(u'-', -1).section(u'.', 0, 0)) {
        return Failure::content(u"%1 has another key than its name says"_s.arg(filePath(pName)));
    }
    mOpened.insert(pName, *tSigner);
    return tSigner;
}

Result<Signer> KeyFolder::openKeyFile(const QString& pName) const
{
    const QString tPem = filePath(pName);
    const QString tCommand = filePath(pName.left(pName.lastIndexOf(u'.'))) + sSignerSuffix;
    const bool tHasCommand = QFileInfo::exists(tCommand);
    Result<QByteArray> tContent = readPrivate(tHasCommand ? tCommand : tPem);
    if (!tContent) {
        return tContent.failure();
    }
    Result<Signer> tSigner =
        tHasCommand ? readCommand(tCommand, *tContent) : readPem(tPem, *tContent, &mPassphrases);
    wipe(&*tContent);
    return tSigner;
}

Result<QList<Signer>> KeyFolder::readSigners(const QString& pRole) const
{
    QStringList tNames{mRecord.mKeyFiles.value(pRole)};
    for (const RetiringKey& tKey : mRecord.mRetiring) {
        if (tKey.mRole == pRole && QFileInfo::exists(filePath(tKey.mFile))) {
            tNames.append(tKey.mFile);
        }
    }
    QList<Signer> tKeys;
    for (const QString& tName : tNames) {
        const Result<Signer> tKey = readKeyFile(tName);
        if (!tKey) {
            return tKey.failure();
        }
        tKeys.append(*tKey);
    }
    return tKeys;
}

QString KeyFolder::findKeyFile(const QString& pRole, const QStringList& pIds) const
{
    for (const QString& tId : pIds) {
        for (const QString& tSuffix : {sPemSuffix, sSignerSuffix}) {
            const QString tName = keyFileName(pRole, tId) + tSuffix;
            if (!QFileInfo::exists(filePath(tName))) {
                continue;
            }
            const Result<Signer> tKey = readKeyFile(tName);
            if (tKey && tKey->id() == tId) {
                return tName;
            }
        }
    }
    return QString();
}

Failure KeyFolder::takeRoot(const QByteArray& pRoot)
{
    tuf::Root tRoot;
    if (Failure tFailure = tuf::parseRoot(pRoot, &tRoot)) {
        return tFailure;
    }
    QMap<QString, QString> tFiles;
    for (const QString& tRole : roleNames()) {
        const QString tName = findKeyFile(tRole, tRoot.mRoles[tRole].mKeyIds);
        if (tName.isEmpty()) {
            return Failure::content(
                u"The repository has version %1 of the root, whose key for the role %2 is "
                "not in %3: restore the keys as they were after the last rotate-key"_s.arg(tRoot.mVersion)
                    .arg(tRole, mPath));
        }
        tFiles.insert(tRole, tName);
    }
    for (auto tIt = tFiles.begin(); tIt != tFiles.end(); ++tIt) {
        const QString tOld = mRecord.mKeyFiles.value(tIt.key());
        if (tIt.key() != tuf::sRoot && tIt.value() != tOld) {
            mRecord.mRetiring.append({tIt.key(), tOld, mRecord.mTimestampExpires});
        }
    }
    mRecord.mKeyFiles = tFiles;
    mRecord.mVersions[tuf::sRoot] = tRoot.mVersion;
    mRecord.mRoot = pRoot;
    return {};
}

Failure KeyFolder::addKey(const QString& pRole, const KeyFile& pKey)
{
    const QString tName = keyFileName(pRole, pKey.mSigner.id()) + pKey.mSuffix;
    if (Failure tFailure = os::replaceFile(mFileSystem, filePath(tName), pKey.mContent, sFileMode)) {
        return tFailure;
    }
    mRecord.mKeyFiles.insert(pRole, tName);
    return {};
}

} // namespace tarn::vkpublish
