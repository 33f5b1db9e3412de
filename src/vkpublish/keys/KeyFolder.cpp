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

const QString sRecordName = u"record.json"_s;
const QString sLockName = u"lock"_s;

} // namespace

KeyFolder::KeyFolder(os::FileSystem& pFileSystem, const QString& pPath)
    : mFileSystem(pFileSystem), mPath(pPath)
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

Failure KeyFolder::openWithoutRecord()
{
    if (Failure tFailure = checkPrivate(mPath)) {
        return tFailure;
    }
    if (Failure tFailure = lock()) {
        return tFailure;
    }
    return QFileInfo::exists(filePath(sRecordName))
               ? Failure::content(u"%1 has a record: move it away if it is lost or damaged"_s.arg(mPath))
               : Failure();
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

Result<tuf::SigningKey> KeyFolder::readKey(const QString& pRole) const
{
    return readKeyFile(mRecord.mKeyFiles.value(pRole));
}

Result<tuf::SigningKey> KeyFolder::readKeyFile(const QString& pName) const
{
    const QString tPath = filePath(pName);
    if (Failure tFailure = checkPrivate(tPath)) {
        return tFailure;
    }
    const Result<QByteArray> tPem = os::readFile(mFileSystem, tPath, sMaxKeyLength);
    if (!tPem) {
        return tPem.failure();
    }
    if (std::optional<tuf::SigningKey> tKey = tuf::SigningKey::fromPem(*tPem)) {
        return *tKey;
    }
    return Failure::content(u"%1 does not contain a usable key"_s.arg(tPath));
}

Result<QList<tuf::SigningKey>> KeyFolder::readSigners(const QString& pRole) const
{
    QStringList tNames{mRecord.mKeyFiles.value(pRole)};
    for (const RetiringKey& tKey : mRecord.mRetiring) {
        if (tKey.mRole == pRole && QFileInfo::exists(filePath(tKey.mFile))) {
            tNames.append(tKey.mFile);
        }
    }
    QList<tuf::SigningKey> tKeys;
    for (const QString& tName : tNames) {
        const Result<tuf::SigningKey> tKey = readKeyFile(tName);
        if (!tKey) {
            return tKey.failure();
        }
        tKeys.append(*tKey);
    }
    return tKeys;
}

QString KeyFolder::findKeyFile(const QString& pRole, const QStringList& pIds) const
{
    const QStringList tNames = QDir(mPath).entryList({pRole + "-*.pem"_L1}, QDir::Files);
    for (const QString& tName : tNames) {
        const Result<tuf::SigningKey> tKey = readKeyFile(tName);
        if (tKey && pIds.contains(tKey->id())) {
            return tName;
        }
    }
    return QString();
}

Failure KeyFolder::takeRoot(const QByteArray& pRoot)
{
    return takeRoot(pRoot, roleNames());
}

Failure KeyFolder::takeRoot(const QByteArray& pRoot, const QStringList& pNeeded)
{
    tuf::Root tRoot;
    if (Failure tFailure = tuf::parseRoot(pRoot, &tRoot)) {
        return tFailure;
    }
    QMap<QString, QString> tFiles;
    for (const QString& tRole : roleNames()) {
        const QString tName = findKeyFile(tRole, tRoot.mRoles[tRole].mKeyIds);
        if (!tName.isEmpty()) {
            tFiles.insert(tRole, tName);
        } else if (pNeeded.contains(tRole)) {
            return Failure::content(
                u"The repository has version %1 of the root, whose key for the role %2 is "
                "not in %3: restore the keys as they were after the last rotate-key"_s.arg(tRoot.mVersion)
                    .arg(tRole, mPath));
        }
    }
    for (auto tIt = tFiles.begin(); tIt != tFiles.end(); ++tIt) {
        const QString tOld = mRecord.mKeyFiles.value(tIt.key());
        if (tIt.key() != tuf::sRoot && tIt.value() != tOld && !tOld.isEmpty()) {
            mRecord.mRetiring.append({tIt.key(), tOld, mRecord.mTimestampExpires});
        }
    }
    mRecord.mKeyFiles = tFiles;
    mRecord.mVersions[tuf::sRoot] = tRoot.mVersion;
    mRecord.mRoot = pRoot;
    return {};
}

Failure KeyFolder::addKey(const QString& pRole, const tuf::SigningKey& pKey)
{
    const QString tName = u"%1-%2.pem"_s.arg(pRole, pKey.id().left(16));
    if (Failure tFailure = os::replaceFile(mFileSystem, filePath(tName), pKey.toPem(), sFileMode)) {
        return tFailure;
    }
    mRecord.mKeyFiles.insert(pRole, tName);
    return {};
}

} // namespace tarn::vkpublish
