#include "mirror/MirrorFolder.h"

#include "publication/Layout.h"

#include "os/FileTools.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFolderMode = 0755;
constexpr mode_t sPrivateMode = 0600;
constexpr qint64 sMaxRecord = 256 * 1024 * 1024;
const QString sMarker = u".vk-mirror"_s;
const QString sRecord = u"/mirror.json"_s;
// What a replaced file is called until its rename.
const QString sNewSuffix = u".new"_s;

bool isFolder(const QString& pPath)
{
    struct stat tStat;
    return ::lstat(QFile::encodeName(pPath).constData(), &tStat) == 0 && S_ISDIR(tStat.st_mode);
}

} // namespace

MirrorFolder::MirrorFolder(os::FileSystem& pFileSystem, const QString& pPath)
    : mFileSystem(pFileSystem), mPath(pPath), mPrivate(pFileSystem), mIncoming(pFileSystem)
{
}

Failure MirrorFolder::open()
{
    Failure tFailure = os::makePath(mFileSystem, mPath, sFolderMode);
    tFailure = tFailure ? tFailure : checkIsOurs();
    tFailure = tFailure ? tFailure : mPrivate.open(pathOf(sMarker));
    tFailure = tFailure ? tFailure : lock();
    tFailure = tFailure ? tFailure : readRecord();
    return tFailure ? tFailure : mIncoming.open(mPrivate.pathOf("incoming"));
}

Failure MirrorFolder::checkIsOurs() const
{
    struct stat tStat;
    if (::lstat(QFile::encodeName(pathOf(sMarker)).constData(), &tStat) == 0 && tStat.st_uid != ::geteuid()) {
        return {Failure::Kind::Person, u"%1 is a mirror of another user: run this as that user"_s.arg(mPath)};
    }
    if (QFileInfo::exists(pathOf(sMarker) + sRecord)) {
        return {};
    }
    // A kill may have left the marker without a record; it wrote nothing else then.
    QStringList tNames =
        QDir(mPath).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    tNames.removeOne(sMarker);
    return tNames.isEmpty()
               ? Failure()
               : Failure{Failure::Kind::Person,
                         u"%1 is neither empty nor a mirror, so nothing is written there: choose a "
                         "new folder"_s.arg(mPath)};
}

Failure MirrorFolder::lock()
{
    if (Failure tFailure = mPrivate.openFile("lock", 0, &mLock)) {
        return tFailure;
    }
    if (::flock(mLock.fd(), LOCK_EX | LOCK_NB) == 0) {
        return {};
    }
    return errno == EWOULDBLOCK
               ? Failure{Failure::Kind::Person, u"Another vkpublish is mirroring into %1"_s.arg(mPath)}
               : Failure::fromErrno(errno, u"lock %1"_s.arg(mPrivate.pathOf("lock")));
}

Failure MirrorFolder::lockRepository()
{
    return mRepositoryLock.takeRepository(metadataFolder(mPath), Patience::Wait);
}

Failure MirrorFolder::readRecord()
{
    const QString tPath = mPrivate.path() + sRecord;
    const Result<QByteArray> tText = os::readFile(mFileSystem, tPath, sMaxRecord);
    if (tText.failure().mKind == Failure::Kind::NotFound) {
        return {};
    }
    if (!tText) {
        return tText.failure();
    }
    const std::optional<MirrorRecord> tRecord = MirrorRecord::fromJson(*tText);
    mRecord = tRecord.value_or(MirrorRecord());
    return tRecord ? Failure()
                   : Failure{Failure::Kind::Damaged, u"%1 is damaged: mirror into a new folder"_s.arg(tPath)};
}

Failure MirrorFolder::save()
{
    return os::replaceFile(mFileSystem, mPrivate.path() + sRecord, mRecord.toJson(), sPrivateMode);
}

Failure MirrorFolder::makeFolder(const QString& pBelow) const
{
    for (qsizetype tEnd = 0; tEnd >= 0;) {
        tEnd = pBelow.indexOf(u'/', tEnd + 1);
        const QString tPath = pathOf(pBelow.left(tEnd));
        const bool tIsNew = mFileSystem.makeDir(QFile::encodeName(tPath), sFolderMode) == 0;
        if (!tIsNew && errno != EEXIST) {
            return Failure::fromErrno(errno, u"make the folder %1"_s.arg(tPath));
        }
        if (!isFolder(tPath)) {
            return {Failure::Kind::Person, u"%1 is not a folder: remove it"_s.arg(tPath)};
        }
        const Failure tFailure = tIsNew ? os::syncDir(mFileSystem, QFileInfo(tPath).path()) : Failure();
        if (tFailure) {
            return tFailure;
        }
    }
    return {};
}

bool MirrorFolder::leadsOut(const QString& pBelow) const
{
    for (qsizetype tEnd = pBelow.indexOf(u'/'); tEnd >= 0; tEnd = pBelow.indexOf(u'/', tEnd + 1)) {
        if (QFileInfo(pathOf(pBelow.left(tEnd))).isSymLink()) {
            return true;
        }
    }
    return false;
}

QStringList MirrorFolder::foreignFiles() const
{
    QStringList tForeign;
    QDirIterator tIt(mPath, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (tIt.hasNext()) {
        const QString tBelow = tIt.next().mid(mPath.size() + 1);
        QString tWhole = tBelow;
        if (tWhole.endsWith(sNewSuffix)) {
            tWhole.chop(sNewSuffix.size());
        }
        if (!tBelow.startsWith(sMarker + u'/') && !mRecord.knows(tBelow) && !mRecord.knows(tWhole)) {
            tForeign.append(tBelow);
        }
    }
    tForeign.sort();
    return tForeign;
}

Failure MirrorFolder::prune(const QDateTime& pNow, qint64 pGrace, const QSet<QString>& pKept, int* pCount)
{
    Failure tFailure;
    for (auto tIt = mRecord.mUnnamed.begin(); tIt != mRecord.mUnnamed.end() && !tFailure;) {
        const QByteArray tPath = QFile::encodeName(pathOf(tIt.key()));
        const QString tNew = tIt.key() + sNewSuffix;
        if (pKept.contains(tIt.key()) || tIt.value().secsTo(pNow) < pGrace) {
            ++tIt;
        } else if (leadsOut(tIt.key())) {
            tFailure = {
                Failure::Kind::Person,
                u"%1 is behind a link, so it is not removed: remove the link"_s.arg(pathOf(tIt.key()))};
        } else if (mFileSystem.unlink(tPath) == 0 || errno == ENOENT) {
            if (!mRecord.knows(tNew)) { // a target may have this name as well
                (void)mFileSystem.unlink(QFile::encodeName(pathOf(tNew)));
            }
            tIt = mRecord.mUnnamed.erase(tIt);
            ++*pCount;
        } else {
            tFailure = Failure::fromErrno(errno, u"remove %1"_s.arg(pathOf(tIt.key())));
        }
    }
    const Failure tSaved = save();
    return tFailure ? tFailure : tSaved;
}

} // namespace tarn::vkpublish
