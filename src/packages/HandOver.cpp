#include "packages/HandOver.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"
#include "packages/Installation.h"
#include "packages/Roots.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr qint64 sMaxMarkerSize = 64 * 1024;
// Nothing else is in this one. A configured one may hold other files, too.
constexpr auto sUsualState = "/var/lib/vkservice";
// What the service makes in a folder of packages, and how the names of its state begin.
constexpr const char* sInRoot[] = {
    "packages", "generations",  ".staging",     "current",          ".current.new",   ".lock",
    ".vk-root", ".vk-root.new", ".intent.json", ".intent.json.new", ".prepared.json", ".prepared.json.new"};
constexpr const char* sInState[] = {"state.",       "install-log.", "installation.json", "damage.json",
                                    "indexes",      "trust",        "downloads",         "mail",
                                    "refused.json", "trial.json"};

bool isOurName(const QByteArray& pName)
{
    return pName == "lost+found" ||
           std::find(std::begin(sInRoot), std::end(sInRoot), pName) != std::end(sInRoot);
}

bool isState(const QByteArray& pName)
{
    return std::any_of(std::begin(sInState), std::end(sInState),
                       [&pName](const char* pBegin) { return pName.startsWith(pBegin); });
}

os::Descriptor openFolder(const QString& pPath)
{
    return {os::realFileSystem(),
            os::realFileSystem().open(QFile::encodeName(pPath), O_RDONLY | O_DIRECTORY)};
}

bool isFolder(int pRoot, const char* pName)
{
    struct stat tStat;
    return ::fstatat(pRoot, pName, &tStat, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(tStat.st_mode);
}

} // namespace

Failure HandOver::give(const QString& pInstallDir)
{
    Installation tInstallation(os::realFileSystem(), mStateDir);
    if (Failure tFailure = tInstallation.read()) {
        return tFailure;
    }
    mId = tInstallation.id();
    QStringList tRoots = tInstallation.roots();
    const bool tIsNew = tRoots.isEmpty();
    if (!tRoots.contains(pInstallDir)) {
        tRoots.append(pInstallDir);
    }
    for (const QString& tRoot : std::as_const(tRoots)) {
        if (Failure tFailure = giveRoot(tRoot, tIsNew && tRoot == pInstallDir)) {
            return tFailure;
        }
    }
    return giveState();
}

Failure HandOver::giveRoot(const QString& pPath, bool pIsNew)
{
    const os::Descriptor tRoot = openFolder(pPath);
    if (!tRoot.isOpen()) {
        return errno == ENOENT ? Failure() : Failure::fromErrno(errno, u"open the folder %1"_s.arg(pPath));
    }
    const Result<QByteArrayList> tNames = os::namesIn(tRoot.fd(), pPath);
    if (!tNames) {
        return tNames.failure();
    }
    const bool tHoldsOthers = !std::all_of(tNames->begin(), tNames->end(), isOurName);
    const Claim tClaim = claimOf(tRoot.fd(), pIsNew, tHoldsOthers);
    if (tClaim != Claim::Ours) {
        mLeft.append(tClaim == Claim::Missing
                         ? u"%1 was left as it is: it has no marker of this installation."_s.arg(pPath)
                         : u"%1 was left as it is: it belongs to another installation."_s.arg(pPath));
        return {};
    }
    for (const char* tName : sInRoot) {
        if (Failure tFailure = mOwnership.give(tRoot.fd(), tName, pPath + u'/' + QLatin1String(tName))) {
            return tFailure;
        }
    }
    if (!tHoldsOthers) {
        return mOwnership.giveOpen(tRoot.fd(), pPath);
    }
    mLeft.append(u"%1 itself was left as it is: it has other files, too. The service can't install "
                 "there until its user may write to this folder."_s.arg(pPath));
    return {};
}

// An empty marker is an administrator's permission to use the folder. If the state is lost, that of the usual
// folder says which installation this is, as it does for the service.
HandOver::Claim HandOver::claimOf(int pRoot, bool pIsNew, bool pHoldsOthers) const
{
    const os::Descriptor tMarker(os::realFileSystem(),
                                 ::openat(pRoot, QFile::encodeName(Roots::markerName()).constData(),
                                          O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!tMarker.isOpen()) {
        const bool tIsMissing = errno == ENOENT;
        const bool tIsEarlier = isFolder(pRoot, "generations") && isFolder(pRoot, "packages");
        return tIsMissing && pIsNew && (tIsEarlier || !pHoldsOthers) ? Claim::Ours : Claim::Missing;
    }
    struct stat tStat;
    if (::fstat(tMarker.fd(), &tStat) != 0 || !S_ISREG(tStat.st_mode) || !mOwnership.mayVouch(pRoot, tStat)) {
        return Claim::Foreign;
    }
    const Result<QByteArray> tBytes =
        os::readOpenFile(os::realFileSystem(), tMarker.fd(), Roots::markerName(), sMaxMarkerSize);
    const QString tId =
        QJsonDocument::fromJson(tBytes.valueOr({})).object().value("installation"_L1).toString();
    const bool tIsId = !tId.isEmpty() && (tId == mId || pIsNew);
    const bool tIsOurs = tBytes && (tBytes->isEmpty() || tIsId);
    return tIsOurs ? Claim::Ours : Claim::Foreign;
}

Failure HandOver::giveState()
{
    const os::Descriptor tState = openFolder(mStateDir);
    if (!tState.isOpen()) {
        return errno == ENOENT ? Failure()
                               : Failure::fromErrno(errno, u"open the state directory %1"_s.arg(mStateDir));
    }
    QStringList tForeign;
    const Result<QByteArrayList> tNames = os::namesIn(tState.fd(), mStateDir);
    if (!tNames) {
        return tNames.failure();
    }
    for (const QByteArray& tName : *tNames) {
        const QString tPath = mStateDir + u'/' + QFile::decodeName(tName);
        if (mStateDir != QLatin1String(sUsualState) && !isState(tName)) {
            tForeign.append(tPath);
        } else if (Failure tFailure = mOwnership.give(tState.fd(), tName, tPath)) {
            return tFailure;
        }
    }
    if (tForeign.isEmpty()) {
        return mOwnership.giveOpen(tState.fd(), mStateDir);
    }
    return {Failure::Kind::Person,
            u"The state directory %1 was left as it is: it has files that are not the service's (%2). Move "
            "them away"_s.arg(mStateDir, tForeign.first())};
}

} // namespace tarn::packages
