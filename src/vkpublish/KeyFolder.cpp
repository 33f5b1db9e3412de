#include "KeyFolder.h"

#include "Roles.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
#include "tuf/Metadata.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0600;
constexpr mode_t sFolderMode = 0700;
constexpr qint64 sMaxKeyLength = 64 * 1024;
constexpr qint64 sMaxRecordLength = 256 * 1024 * 1024;

const QString sRecordName = u"record.json"_s;
const QString sLockName = u"lock"_s;

QString systemReason()
{
    return QString::fromStdString(std::generic_category().message(errno));
}

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

bool KeyFolder::checkPrivate(const QString& pPath, QString* pError) const
{
    struct stat tStat
    {
    };
    if (::stat(QFile::encodeName(pPath).constData(), &tStat) != 0) {
        *pError = u"%1 can't be used: %2"_s.arg(pPath, systemReason());
        return false;
    }
    if ((tStat.st_mode & 077) != 0) {
        *pError = u"%1 is accessible to other users. Check who had access, then remove it: "
                  "chmod go= %1"_s.arg(pPath);
        return false;
    }
    return true;
}

bool KeyFolder::lock(QString* pError)
{
    mLockFd =
        ::open(QFile::encodeName(filePath(sLockName)).constData(), O_RDWR | O_CREAT | O_CLOEXEC, sFileMode);
    if (mLockFd >= 0 && ::flock(mLockFd, LOCK_EX | LOCK_NB) == 0) {
        return true;
    }
    *pError = errno == EWOULDBLOCK ? u"Another vkpublish is using the keys in %1"_s.arg(mPath)
                                   : u"%1 can't be locked: %2"_s.arg(mPath, systemReason());
    return false;
}

bool KeyFolder::create(QString* pError)
{
    if (!QDir().mkpath(QFileInfo(mPath).absolutePath()) ||
        (mFileSystem.makeDir(QFile::encodeName(mPath), sFolderMode) != 0 && errno != EEXIST)) {
        *pError = u"The key folder %1 can't be created: %2"_s.arg(mPath, systemReason());
        return false;
    }
    if (!QDir(mPath).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        *pError = QFileInfo::exists(filePath(sRecordName))
                      ? u"%1 already contains the keys of a repository"_s.arg(mPath)
                      : u"The key folder %1 is not empty"_s.arg(mPath);
        return false;
    }
    return checkPrivate(mPath, pError) && lock(pError);
}

bool KeyFolder::open(QString* pError)
{
    if (!QFileInfo::exists(filePath(sRecordName))) {
        *pError = u"The key folder %1 does not exist: name it with --keys, or create a repository with "
                  "\"vkpublish init\""_s.arg(mPath);
        return false;
    }
    return checkPrivate(mPath, pError) && lock(pError) && openForReading(pError);
}

bool KeyFolder::openForReading(QString* pError)
{
    QByteArray tText;
    if (const Failure tError =
            tuf::readWholeFile(mFileSystem, filePath(sRecordName), sMaxRecordLength, &tText)) {
        *pError = tError.mText;
        return false;
    }
    if (!Record::fromJson(tText, &mRecord)) {
        *pError = u"%1 is damaged"_s.arg(filePath(sRecordName));
        return false;
    }
    return true;
}

bool KeyFolder::save(QString* pError)
{
    const Failure tError =
        tuf::writeFileAtomically(mFileSystem, filePath(sRecordName), mRecord.toJson(), sFileMode);
    *pError = tError.mText;
    return !tError;
}

bool KeyFolder::readKey(const QString& pRole, std::optional<tuf::SigningKey>* pTo, QString* pError)
{
    return readKeyFile(mRecord.mKeyFiles.value(pRole), pTo, pError);
}

bool KeyFolder::readKeyFile(const QString& pName, std::optional<tuf::SigningKey>* pTo, QString* pError)
{
    const QString tPath = filePath(pName);
    QByteArray tPem;
    if (!checkPrivate(tPath, pError)) {
        return false;
    }
    if (const Failure tError = tuf::readWholeFile(mFileSystem, tPath, sMaxKeyLength, &tPem)) {
        *pError = tError.mText;
        return false;
    }
    *pTo = tuf::SigningKey::fromPem(tPem);
    if (!*pTo) {
        *pError = u"%1 does not contain a usable key"_s.arg(tPath);
    }
    return pTo->has_value();
}

bool KeyFolder::readSigners(const QString& pRole, QList<tuf::SigningKey>* pTo, QString* pError)
{
    QStringList tNames{mRecord.mKeyFiles.value(pRole)};
    for (const RetiringKey& tKey : mRecord.mRetiring) {
        if (tKey.mRole == pRole && QFileInfo::exists(filePath(tKey.mFile))) {
            tNames.append(tKey.mFile);
        }
    }
    for (const QString& tName : tNames) {
        std::optional<tuf::SigningKey> tKey;
        if (!readKeyFile(tName, &tKey, pError)) {
            return false;
        }
        pTo->append(*tKey);
    }
    return true;
}

QString KeyFolder::findKeyFile(const QString& pRole, const QStringList& pIds)
{
    const QStringList tNames = QDir(mPath).entryList({pRole + "-*.pem"_L1}, QDir::Files);
    for (const QString& tName : tNames) {
        std::optional<tuf::SigningKey> tKey;
        QString tReason;
        if (readKeyFile(tName, &tKey, &tReason) && pIds.contains(tKey->id())) {
            return tName;
        }
    }
    return QString();
}

bool KeyFolder::takeRoot(const QByteArray& pRoot, QString* pError)
{
    tuf::Root tRoot;
    if (const Failure tError = tuf::parseRoot(pRoot, &tRoot)) {
        *pError = tError.mText;
        return false;
    }
    QMap<QString, QString> tFiles;
    for (const QString& tRole : roleNames()) {
        const QString tName = findKeyFile(tRole, tRoot.mRoles[tRole].mKeyIds);
        if (tName.isEmpty()) {
            *pError =
                u"The repository has version %1 of the root, whose key for the role %2 is "
                "not in %3: restore the keys as they were after the last rotate-key"_s.arg(tRoot.mVersion)
                    .arg(tRole, mPath);
            return false;
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
    return true;
}

bool KeyFolder::addKey(const QString& pRole, const tuf::SigningKey& pKey, QString* pError)
{
    const QString tName = u"%1-%2.pem"_s.arg(pRole, pKey.id().left(16));
    const Failure tError = tuf::writeFileAtomically(mFileSystem, filePath(tName), pKey.toPem(), sFileMode);
    *pError = tError.mText;
    if (!tError) {
        mRecord.mKeyFiles.insert(pRole, tName);
    }
    return !tError;
}

} // namespace tarn::vkpublish
