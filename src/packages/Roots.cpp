#include "packages/Roots.h"

#include "os/FileTools.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QUuid>

#include <fcntl.h>
#include <pwd.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr mode_t sFolderMode = 0755;
constexpr mode_t sMarkerMode = 0600; // a user who could read it could lock it
constexpr qint64 sMaxMarkerSize = 64 * 1024;
constexpr int sFormat = 1;

Failure refused(const QString& pText)
{
    return {Failure::Kind::Person, pText};
}

// Entries of a newly formatted disk, and leftovers of an earlier version that installed nothing.
bool isAsGoodAsNothing(const QFileInfo& pInfo)
{
    static const QStringList sFiles{u".lock"_s, Roots::markerName() + u".new"_s};
    static const QStringList sFolders{u"packages"_s, u".staging"_s, u"generations"_s};
    if (pInfo.isSymLink()) {
        return false;
    }
    if (pInfo.isDir()) {
        return pInfo.fileName() == "lost+found"_L1 ||
               (sFolders.contains(pInfo.fileName()) &&
                QDir(pInfo.filePath())
                    .isEmpty(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot));
    }
    return sFiles.contains(pInfo.fileName());
}

bool isEmpty(const QString& pFolder, const QStringList& pInside)
{
    const QFileInfoList tEntries =
        QDir(pFolder).entryInfoList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    return std::all_of(tEntries.begin(), tEntries.end(), [&pInside](const QFileInfo& pInfo) {
        const QString tBelow = pInfo.filePath() + u'/';
        return isAsGoodAsNothing(pInfo) ||
               std::any_of(pInside.begin(), pInside.end(),
                           [&tBelow](const QString& pPath) { return (pPath + u'/').startsWith(tBelow); });
    });
}

QString ownName()
{
    const passwd* tEntry = ::getpwuid(::geteuid());
    return tEntry == nullptr ? QString::number(::geteuid()) : QFile::decodeName(tEntry->pw_name);
}

bool isOurs(const struct stat& pStat)
{
    return (pStat.st_uid == ::geteuid() || pStat.st_uid == 0) && (pStat.st_mode & S_IWOTH) == 0;
}

Failure notMounted(const QString& pRoot)
{
    return refused(
        u"The packages in %1 are missing: its file %2 does not exist, perhaps because a disk is not "
        "mounted. Nothing was written to it. Mount the disk. If its contents are lost, create "
        "%1 with an empty file %2 in it, and start the update"_s.arg(pRoot, Roots::markerName()));
}

} // namespace

struct Roots::Claim
{
    enum class Marker
    {
        Missing,
        Ours,
        Empty, // created by an administrator
    };

    QString mPath;
    QStringList mInside;
    bool mGivesId = false; // its marker determines the id of this installation
    bool mIsLeft = false;  // for NewRoots::Leave
    Marker mFound = Marker::Missing;
    Root mRoot;
};

Roots::Roots(os::FileSystem& pFileSystem, const QString& pStateDir)
    : mFileSystem(pFileSystem), mInstallation(pFileSystem, pStateDir)
{
}

Failure Roots::open(NewRoots pNew)
{
    mNew = pNew;
    return mInstallation.read();
}

QStringList Roots::paths() const
{
    QStringList tPaths;
    for (const auto& [tPath, tRoot] : mRoots) {
        tPaths.append(tPath);
    }
    return tPaths;
}

int Roots::fd(const QString& pRoot) const
{
    const auto tIt = mRoots.find(pRoot);
    return tIt == mRoots.end() ? -1 : tIt->second.mFolder.fd();
}

Failure Roots::claim(const QString& pRoot, const QStringList& pInside,
                     const std::function<Vouched()>& pVouched)
{
    Claim tClaim;
    tClaim.mPath = pRoot;
    tClaim.mInside = pInside;
    return make(&tClaim, pVouched);
}

Failure Roots::claimInstallDir(const QString& pRoot, const QStringList& pInside,
                               const std::function<Vouched()>& pVouched)
{
    Claim tClaim;
    tClaim.mPath = pRoot;
    tClaim.mInside = pInside;
    tClaim.mGivesId = isNewInstallation();
    return make(&tClaim, pVouched);
}

Failure Roots::make(Claim* pClaim, const std::function<Vouched()>& pVouched)
{
    if (fd(pClaim->mPath) >= 0) {
        return {};
    }
    if (Failure tFailure = openFolder(pClaim, pVouched)) {
        return tFailure;
    }
    return pClaim->mIsLeft ? Failure() : take(pClaim);
}

Failure Roots::take(Claim* pClaim)
{
    Failure tFailure = checkFolder(*pClaim);
    tFailure = tFailure || pClaim->mFound == Claim::Marker::Ours ? tFailure : writeMarker(pClaim);
    tFailure = tFailure ? tFailure : lock(pClaim);
    tFailure = tFailure ? tFailure : mInstallation.addRoot(pClaim->mPath);
    if (!tFailure) {
        mRoots.emplace(pClaim->mPath, std::move(pClaim->mRoot));
    }
    return tFailure;
}

// Finds the folder with its marker, or decides whether it may become a root without one.
Failure Roots::openFolder(Claim* pClaim, const std::function<Vouched()>& pVouched)
{
    const QByteArray tPath = QFile::encodeName(pClaim->mPath);
    const auto tOpen = [&] {
        pClaim->mRoot.mFolder = os::Descriptor(mFileSystem, mFileSystem.open(tPath, O_RDONLY | O_DIRECTORY));
        return pClaim->mRoot.mFolder.isOpen();
    };
    const auto tCantOpen = [&] {
        return Failure::fromErrno(errno, u"open the folder %1"_s.arg(pClaim->mPath));
    };
    const bool tIsThere = tOpen();
    if (!tIsThere && errno != ENOENT) {
        return tCantOpen();
    }
    if (tIsThere) {
        const Failure tFailure = readMarker(pClaim);
        if (tFailure || pClaim->mFound != Claim::Marker::Missing) {
            return tFailure;
        }
    }
    const Vouched tVouched = knows(pClaim->mPath) ? Vouched::Absent : pVouched();
    if (tVouched == Vouched::Absent) {
        return notMounted(pClaim->mPath);
    }
    if (tIsThere && tVouched == Vouched::Nothing && !isEmpty(pClaim->mPath, pClaim->mInside)) {
        return refused(u"The folder %1 is not empty and does not belong to this installation; nothing in "
                       "it was changed. Choose an empty folder. To install packages beside the existing "
                       "files, create an empty file %2 in it"_s.arg(pClaim->mPath, markerName()));
    }
    pClaim->mIsLeft = tVouched == Vouched::Nothing && mNew == NewRoots::Leave;
    if (tIsThere || pClaim->mIsLeft) {
        return {};
    }
    const Failure tFailure = os::makePath(mFileSystem, pClaim->mPath, sFolderMode);
    if (tFailure && errno == EACCES) {
        return refused(u"%1. Create it for the service's user: install -d -o %2 %3"_s.arg(
            tFailure.mText, ownName(), pClaim->mPath));
    }
    return tFailure || tOpen() ? tFailure : tCantOpen();
}

// Nobody else may be able to replace what is installed.
Failure Roots::checkFolder(const Claim& pClaim) const
{
    const auto tRefuse = [](const QString& pPath) {
        return refused(
            u"%1 is a link, belongs to another user or may be written to by all users, so "
            "packages in it would not be safe. Correct that, or choose another folder"_s.arg(pPath));
    };
    struct stat tStat;
    if (::fstat(pClaim.mRoot.mFolder.fd(), &tStat) != 0 || !isOurs(tStat)) {
        return tRefuse(pClaim.mPath);
    }
    if (::faccessat(pClaim.mRoot.mFolder.fd(), ".", W_OK | X_OK, AT_EACCESS) != 0 && errno == EACCES) {
        return refused(
            u"The service's user, %2, may not write to the folder %1. If it is meant for packages, give "
            "it to that user: chown %2 %1"_s.arg(pClaim.mPath, ownName()));
    }
    for (const char* tName : {"packages", ".staging", "generations"}) {
        if (::fstatat(pClaim.mRoot.mFolder.fd(), tName, &tStat, AT_SYMLINK_NOFOLLOW) == 0 &&
            (!S_ISDIR(tStat.st_mode) || !isOurs(tStat))) {
            return tRefuse(pClaim.mPath + u'/' + QLatin1String(tName));
        }
    }
    return {};
}

Failure Roots::readMarker(Claim* pClaim)
{
    const QString tPath = pClaim->mPath + u'/' + markerName();
    os::Descriptor tMarker(mFileSystem,
                           mFileSystem.openAt(pClaim->mRoot.mFolder.fd(), QFile::encodeName(markerName()),
                                              O_RDONLY | O_NOFOLLOW | O_NONBLOCK));
    if (!tMarker.isOpen() && errno != EACCES) {
        return errno == ENOENT ? Failure() : Failure::fromErrno(errno, u"open %1"_s.arg(tPath));
    }
    struct stat tStat;
    if (!tMarker.isOpen() || ::fstat(tMarker.fd(), &tStat) != 0 || !S_ISREG(tStat.st_mode) ||
        tStat.st_uid != ::geteuid()) {
        return refused(
            u"%1 is not a file of %2, the user that the service runs as. If the folder is this "
            "installation's, stop the service and run vkservice --hand-over; if the file is meant as a "
            "permission, chown %2 %1"_s.arg(tPath, ownName()));
    }
    const Result<QByteArray> tBytes = os::readOpenFile(mFileSystem, tMarker.fd(), tPath, sMaxMarkerSize);
    if (!tBytes) {
        return tBytes.failure().as(Failure::Kind::Io);
    }
    if (tBytes->isEmpty()) {
        pClaim->mFound = Claim::Marker::Empty;
        return {};
    }
    const QJsonObject tObject = QJsonDocument::fromJson(*tBytes).object();
    const QString tId = tObject.value("installation"_L1).toString();
    const bool tIsSound = tObject.value("format"_L1).toInt() == sFormat && !tId.isEmpty();
    if (tIsSound && pClaim->mGivesId) {
        if (const Failure tFailure = mInstallation.setId(tId)) {
            return tFailure;
        }
    } else if (!tIsSound || tId != mInstallation.id()) {
        return refused(
            u"The folder %1 belongs to another installation, as its file %2 says; nothing in it was "
            "changed. Choose another folder. If that installation is gone, empty the file: "
            "truncate -s 0 %1/%2"_s.arg(pClaim->mPath, markerName()));
    }
    pClaim->mFound = Claim::Marker::Ours;
    pClaim->mRoot.mMarker = std::move(tMarker);
    return {};
}

// Syncs the folder itself, too: a known root must not be missing after a crash.
Failure Roots::writeMarker(Claim* pClaim)
{
    if (mInstallation.id().isEmpty()) {
        if (const Failure tFailure =
                mInstallation.setId(QUuid::createUuid().toString(QUuid::WithoutBraces))) {
            return tFailure;
        }
    }
    const QJsonObject tObject{{u"format"_s, sFormat}, {u"installation"_s, mInstallation.id()}};
    if (Failure tFailure =
            os::replaceFile(mFileSystem, pClaim->mPath + u'/' + markerName(),
                            QJsonDocument(tObject).toJson(QJsonDocument::Compact) + '\n', sMarkerMode)) {
        return tFailure;
    }
    if (mFileSystem.syncFs(pClaim->mRoot.mFolder.fd()) != 0) {
        return Failure::fromErrno(errno, u"write the folder %1 to the disk"_s.arg(pClaim->mPath));
    }
    return readMarker(pClaim);
}

// Two names of one folder are one root.
bool Roots::isSameAsAnother(int pMarkerFd) const
{
    struct stat tStat;
    return ::fstat(pMarkerFd, &tStat) == 0 &&
           std::any_of(mRoots.begin(), mRoots.end(), [&tStat](const auto& pRoot) {
               struct stat tOther;
               return ::fstat(pRoot.second.mMarker.fd(), &tOther) == 0 && tOther.st_dev == tStat.st_dev &&
                      tOther.st_ino == tStat.st_ino;
           });
}

Failure Roots::lock(Claim* pClaim)
{
    os::Descriptor& tMarker = pClaim->mRoot.mMarker;
    if (isSameAsAnother(tMarker.fd())) {
        tMarker.close();
        return {};
    }
    if (::flock(tMarker.fd(), LOCK_EX | LOCK_NB) == 0) {
        return {};
    }
    if (errno == EWOULDBLOCK) {
        return {Failure::Kind::Io,
                u"Another service is updating %1: wait until it has ended"_s.arg(pClaim->mPath)};
    }
    return Failure::fromErrno(errno, u"lock %1/%2"_s.arg(pClaim->mPath, markerName()));
}

} // namespace tarn::packages
