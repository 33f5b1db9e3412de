#include "update/TrustFolder.h"

#include "os/FileTools.h"
#include "tuf/Hashes.h"
#include "tuf/Updater.h"
#include "update/TrustAdoption.h"

#include <QtCore/QDir>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr mode_t sPrivateDir = 0700;
constexpr mode_t sPrivateFile = 0600;
constexpr qint64 sMaxRootSize = 512 * 1024;
constexpr qint64 sMaxMetadataSize = 16 * 1024 * 1024;
constexpr qsizetype sNoteNameLength = 32;

Failure noRootFile(const QString& pReason)
{
    return {Failure::Kind::Untrusted,
            u"No server can be trusted without the root file of its repository. %1. Get the file "
            "from the publisher of the updates and put it there"_s.arg(pReason)};
}

} // namespace

TrustFolder::TrustFolder(os::FileSystem& pFileSystem, const QString& pStateDir)
    : mFileSystem(pFileSystem), mFolder(pStateDir + u"/trust"_s)
{
}

QString TrustFolder::path() const
{
    return u"%1/%2/metadata"_s.arg(mFolder, QString::fromLatin1(mRootHash));
}

QString TrustFolder::notePath(const QString& pUri) const
{
    const QByteArray tName = tuf::sha256(pUri.toUtf8()).left(sNoteNameLength);
    return u"%1/%2/servers/%3.json"_s.arg(mFolder, QString::fromLatin1(mRootHash),
                                          QString::fromLatin1(tName));
}

QString TrustFolder::currentPath() const
{
    return mFolder + u"/current"_s;
}

Failure TrustFolder::prepare(const QString& pRootFile, const QString& pUri)
{
    const Result<QByteArray> tRoot = os::readFile(mFileSystem, pRootFile, sMaxRootSize);
    mRootHash = tRoot ? tuf::sha256(*tRoot) : lastRoot(pUri);
    if (mRootHash.isEmpty()) {
        return noRootFile(tRoot.failure().mText);
    }
    const auto tHasTrust = [this] { return QFileInfo::exists(path() + u"/root.json"_s); };
    const TrustAdoption tOld(mFileSystem, mFolder);
    if (Failure tFailure = os::makePath(mFileSystem, QFileInfo(notePath(pUri)).path(), sPrivateDir)) {
        return tFailure;
    }
    if (!tHasTrust()) {
        if (const Failure tFailure = tOld.adopt(mRootHash, path())) {
            return tFailure;
        }
    }
    if (!tHasTrust()) {
        if (!tRoot) {
            return noRootFile(tRoot.failure().mText);
        }
        if (const Failure tFailure = lostRoot()) {
            return tFailure;
        }
        if (Failure tFailure = tuf::Updater::initialize(mFileSystem, path(), *tRoot)) {
            return tFailure;
        }
    }
    if (const Failure tFailure = noteCurrent()) {
        return tFailure;
    }
    tOld.remove();
    return {};
}

// The root is the first file there. The one to start from may be older than what this machine has trusted.
Failure TrustFolder::lostRoot() const
{
    return QDir(path()).entryList({u"*.json"_s}, QDir::Files | QDir::System).isEmpty()
               ? Failure()
               : Failure{Failure::Kind::Damaged,
                         u"The trusted root %1/root.json is missing, but others of its files are there. If "
                         "it can't be restored, remove the folder: the next update starts again from the "
                         "root file"_s.arg(path())};
}

bool TrustFolder::usePrevious()
{
    mRootHash = lastRoot({});
    return !mRootHash.isEmpty();
}

// Of the previous run; empty: not known.
QByteArray TrustFolder::lastRoot(const QString& pUri) const
{
    QByteArray tHash = os::readFile(mFileSystem, currentPath(), sMaxRootSize).valueOr({});
    if (!tuf::Hash::fromHex(tuf::HashAlgorithm::Sha256, QString::fromLatin1(tHash))) {
        tHash = TrustAdoption(mFileSystem, mFolder).rootHash(pUri);
    }
    return tHash;
}

Failure TrustFolder::noteCurrent()
{
    if (os::readFile(mFileSystem, currentPath(), sMaxRootSize).valueOr({}) == mRootHash) {
        return {};
    }
    return os::replaceFile(mFileSystem, currentPath(), mRootHash, sPrivateFile).as(Failure::Kind::Damaged);
}

QByteArray TrustFolder::timestampHash() const
{
    const auto tBytes = os::readFile(mFileSystem, path() + u"/timestamp.json"_s, sMaxMetadataSize);
    return tBytes ? tuf::sha256(*tBytes) : QByteArray();
}

QDateTime TrustFolder::earliestExpiry() const
{
    QDateTime tEarliest;
    const QStringList tNames = QDir(path()).entryList({u"*.json"_s}, QDir::Files);
    for (const QString& tName : tNames) {
        const QByteArray tBytes =
            os::readFile(mFileSystem, path() + u'/' + tName, sMaxMetadataSize).valueOr({});
        const QJsonObject tSigned = QJsonDocument::fromJson(tBytes).object().value("signed"_L1).toObject();
        const QString tExpires = tSigned.value("expires"_L1).toString();
        const QDateTime tDate = QDateTime::fromString(tExpires, Qt::ISODate);
        if (!tDate.isValid()) {
            return {};
        }
        tEarliest = tEarliest.isValid() ? qMin(tEarliest, tDate) : tDate;
    }
    return tEarliest;
}

QDateTime TrustFolder::now() const
{
    const QDateTime tClock = QDateTime::currentDateTimeUtc();
    const QDateTime tProven = tuf::Updater::provenTime(mFileSystem, path());
    return tProven.isValid() ? std::max(tClock, tProven) : tClock;
}

} // namespace tarn::vkservice::update
