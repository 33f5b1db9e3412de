#include "keys/KeyFolder.h"

#include "os/Descriptor.h"
#include "os/FileSystem.h"
#include "os/FileTools.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0600;
constexpr mode_t sFolderMode = 0700;
constexpr mode_t sParentMode = 0755;
constexpr qint64 sMaxBeginning = 1024 * 1024;
constexpr qint64 sMaxRecordLength = 256 * 1024 * 1024;

const QString sRecordName = u"record.json"_s;
const QString sPackages = u"packages"_s;
// What a replaced file is called until its rename.
const QString sNewSuffix = u".new"_s;

} // namespace

KeyFolder::KeyFolder(os::FileSystem& pFileSystem, const QString& pPath, Patience pPatience)
    : mFileSystem(pFileSystem), mPath(pPath), mLists(pFileSystem, pPath), mPatience(pPatience),
      mPassphrases(u"the keys in %1"_s.arg(pPath))
{
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

Failure KeyFolder::checkEmpty() const
{
    QStringList tNames =
        QDir(mPath).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    tNames.removeOne(FolderLock::fileName());
    tNames.removeOne(sRecordName + sNewSuffix);
    if (const std::optional<Beginning> tBegun = begun()) {
        tNames.removeIf([&](const QString& pName) {
            return pName == sRecordName || pName == sPackages ||
                   tBegun->mKeys.contains(pName.endsWith(sNewSuffix) ? pName.chopped(sNewSuffix.size())
                                                                     : pName);
        });
    }
    return tNames.isEmpty() ? Failure()
           : tNames.contains(sRecordName)
               ? Failure::content(u"%1 already contains the keys of a repository"_s.arg(mPath))
               : Failure::content(u"The key folder %1 is not empty"_s.arg(mPath));
}

Failure KeyFolder::create()
{
    if (Failure tFailure = os::makePath(mFileSystem, QFileInfo(mPath).absolutePath(), sParentMode)) {
        return tFailure;
    }
    if (mFileSystem.makeDir(QFile::encodeName(mPath), sFolderMode) != 0 && errno != EEXIST) {
        return Failure::fromErrno(errno, u"create the key folder %1"_s.arg(mPath));
    }
    if (Failure tFailure = checkEmpty()) {
        return tFailure;
    }
    if (Failure tFailure = checkPrivate(mPath)) {
        return tFailure;
    }
    if (Failure tFailure = mLock.takeKeys(mPath, mPatience)) {
        return tFailure;
    }
    return checkEmpty(); // whoever had the lock may have filled it
}

std::optional<Beginning> KeyFolder::begun() const
{
    // What it names is removed, so it must be from this user.
    const QString tPath = filePath(sRecordName);
    const os::Descriptor tFile = os::openRegular(mFileSystem, QFile::encodeName(tPath));
    struct stat tStat = {};
    return tFile.isOpen() && ::fstat(tFile.fd(), &tStat) == 0 && tStat.st_uid == ::geteuid()
               ? Beginning::fromJson(
                     os::readOpenFile(mFileSystem, tFile.fd(), tPath, sMaxBeginning).valueOr({}))
               : std::nullopt;
}

Failure KeyFolder::begin(const Beginning& pNew)
{
    for (const QString& tName : begun().value_or(Beginning()).mKeys) {
        for (const QString& tPath : {filePath(tName), filePath(tName) + sNewSuffix}) {
            if (mFileSystem.unlink(QFile::encodeName(tPath)) != 0 && errno != ENOENT) {
                return Failure::fromErrno(errno, u"remove %1"_s.arg(tPath));
            }
        }
    }
    return os::replaceFile(mFileSystem, filePath(sRecordName), pNew.toJson(), sFileMode);
}

Failure KeyFolder::openLocked()
{
    if (!QFileInfo::exists(filePath(sRecordName))) {
        if (!QDir(mPath).entryList({u"*.pem"_s, u"*.signer"_s}, QDir::Files).isEmpty()) {
            return Failure::content(
                u"%1 has keys, but no record: make it again with \"vkpublish recover\""_s.arg(mPath));
        }
        return Failure::content(
            u"The key folder %1 does not exist: name it with --keys, or create a repository with "
            "\"vkpublish init\""_s.arg(mPath));
    }
    if (Failure tFailure = checkPrivate(mPath)) {
        return tFailure;
    }
    return mLock.takeKeys(mPath, mPatience);
}

Failure KeyFolder::open()
{
    if (Failure tFailure = openLocked()) {
        return tFailure;
    }
    return openForReading();
}

Failure KeyFolder::openWithoutRecord()
{
    if (Failure tFailure = checkPrivate(mPath)) {
        return tFailure;
    }
    if (Failure tFailure = mLock.takeKeys(mPath, mPatience)) {
        return tFailure;
    }
    return QFileInfo::exists(filePath(sRecordName))
               ? Failure::content(u"%1 has a record: move it away if it is lost or damaged"_s.arg(mPath))
               : Failure();
}

Failure KeyFolder::lockRepository(const QString& pMetadata)
{
    return mRepositoryLock.isTaken() ? Failure() : mRepositoryLock.takeRepository(pMetadata, mPatience);
}

Failure KeyFolder::openForReading()
{
    return read(QString());
}

Failure KeyFolder::openPackages(const QString& pPrefix)
{
    if (Failure tFailure = openLocked()) {
        return tFailure;
    }
    return read(pPrefix);
}

// A publisher that works meanwhile may remove the files that the record named; then it has replaced the
// record.
Failure KeyFolder::read(const QString& pPrefix)
{
    QByteArray tBefore;
    for (;;) {
        QByteArray tText;
        const Failure tFailure = readOnce(pPrefix, &tText);
        if (tFailure.mKind != Failure::Kind::NotFound || tText.isEmpty()) {
            return tFailure;
        }
        if (tText == tBefore) {
            return Failure::content(
                u"%1: the record and the folder %2 belong together, restore both from the "
                "same backup"_s.arg(tFailure.mText, filePath(sPackages)));
        }
        tBefore = tText;
    }
}

Failure KeyFolder::readOnce(const QString& pPrefix, QByteArray* pText)
{
    const auto tText = os::readFile(mFileSystem, filePath(sRecordName), sMaxRecordLength);
    if (!tText) {
        return tText.failure();
    }
    *pText = *tText;
    mRecord = Record();
    if (!Record::fromJson(*tText, &mRecord)) {
        return Failure::content(
            (Beginning::fromJson(*tText) ? u"%1 says that \"vkpublish init\" was interrupted: run it again"_s
             : Record::isNewer(*tText)   ? u"%1 was written by a newer vkpublish: use that one"_s
                                         : u"%1 is damaged: restore the key folder from a backup"_s)
                .arg(filePath(sRecordName)));
    }
    if (mRecord.mChangesFile.mNumber == 0) {
        return {};
    }
    mMaySave = pPrefix.isEmpty();
    const Failure tFailure = mLists.read(&mRecord, pPrefix);
    mSaved = mRecord;
    return tFailure;
}

Failure KeyFolder::save()
{
    if (!mMaySave) {
        return Failure::content(u"%1 can't be written"_s.arg(filePath(sRecordName)));
    }
    mMaySave = false; // after a failure nobody knows which files the record names
    mRecord.mPublishedFile = mSaved.mPublishedFile;
    mRecord.mWithdrawnFile = mSaved.mWithdrawnFile;
    mRecord.mChangesFile = mSaved.mChangesFile;
    if (Failure tFailure = mLists.write(mSaved, &mRecord)) {
        return tFailure;
    }
    if (Failure tFailure = os::replaceFile(mFileSystem, filePath(sRecordName), mRecord.toJson(), sFileMode)) {
        return tFailure;
    }
    mSaved = mRecord;
    mMaySave = true;
    return {};
}

Failure KeyFolder::savePackage(const QString& pArchive)
{
    if (mSaved.mChangesFile.mNumber == 0) {
        return save(); // a record of an earlier version, read as a whole
    }
    const QByteArray tText = mRecord.mTargets.text(pArchive);
    if (Failure tFailure = mLists.append(mSaved.mChangesFile, pArchive, tText)) {
        return tFailure;
    }
    mSaved.mTargets = mRecord.mTargets;
    return {};
}

} // namespace tarn::vkpublish
