#include "update/TrustFolder.h"

#include "os/FileTools.h"
#include "tuf/Hashes.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <cerrno>

namespace tarn::vkservice::update {

namespace {

constexpr mode_t sPrivateDir = 0700;
constexpr mode_t sPrivateFile = 0600;
constexpr qint64 sMaxRootSize = 512 * 1024;
constexpr qint64 sMaxMetadataSize = 16 * 1024 * 1024;
constexpr int sFolderNameLength = 32;

} // namespace

TrustFolder::TrustFolder(os::FileSystem& pFileSystem, const QString& pStateDir, const QString& pUri)
    : mFileSystem(pFileSystem),
      mPath(QStringLiteral("%1/trust/%2")
                .arg(pStateDir, QString::fromLatin1(tuf::sha256(pUri.toUtf8()).left(sFolderNameLength)))),
      mNotePath(mPath + QStringLiteral(".note.json"))
{
    readNote();
}

Trouble TrustFolder::prepare(const QString& pRootFile)
{
    const bool tHasTrust = QFileInfo::exists(mPath + QStringLiteral("/root.json"));
    QByteArray tRoot;
    const os::Failure tFailure = os::readFile(mFileSystem, pRootFile, sMaxRootSize, &tRoot);
    if (tFailure && tHasTrust) {
        return {}; // it was needed once only
    }
    if (tFailure) {
        return {Trouble::Kind::Untrusted,
                QStringLiteral(
                    "No server can be trusted without the root file of its repository. %1. Get the file "
                    "from the publisher of the updates and put it there")
                    .arg(tFailure.mText)};
    }
    const QByteArray tHash = tuf::sha256(tRoot);
    const bool tReplaced = !mRootHash.isEmpty() && tHash != mRootHash;
    if (!tHasTrust || tReplaced) {
        if (const Trouble tTrouble = initialize(tRoot)) {
            return tTrouble;
        }
    }
    if (tHash != mRootHash) {
        mRootHash = tHash;
        forgetComplete();
    }
    return {};
}

Trouble TrustFolder::initialize(const QByteArray& pRoot)
{
    if (const os::Failure tFailure = os::makePath(mFileSystem, QFileInfo(mPath).path(), sPrivateDir)) {
        return Trouble::from(tFailure);
    }
    return Trouble::from(tuf::Updater::initialize(mFileSystem, mPath, pRoot));
}

bool TrustFolder::isComplete(const QByteArray& pState) const
{
    return !mCompleteState.isEmpty() && mCompleteState == seen(pState) &&
           QDateTime::currentDateTimeUtc() < mCompleteUntil;
}

// A run that fails after it has stored a newer timestamp has not seen to what stands behind that one.
QByteArray TrustFolder::seen(const QByteArray& pState) const
{
    return tuf::sha256(pState + timestamp());
}

QByteArray TrustFolder::timestamp() const
{
    QByteArray tBytes;
    os::readFile(mFileSystem, mPath + QStringLiteral("/timestamp.json"), sMaxMetadataSize, &tBytes);
    return tBytes;
}

void TrustFolder::noteComplete(const QByteArray& pState, const Validators& pTimestamp)
{
    mCompleteState = seen(pState);
    mCompleteUntil = earliestExpiry();
    mTimestampValidators = pTimestamp;
    writeNote();
}

void TrustFolder::forgetComplete()
{
    mCompleteState.clear();
    mCompleteUntil = QDateTime();
    mTimestampValidators = Validators();
    writeNote();
}

QDateTime TrustFolder::earliestExpiry() const
{
    QDateTime tEarliest;
    const QStringList tNames = QDir(mPath).entryList({QStringLiteral("*.json")}, QDir::Files);
    for (const QString& tName : tNames) {
        QByteArray tBytes;
        os::readFile(mFileSystem, mPath + QLatin1Char('/') + tName, sMaxMetadataSize, &tBytes);
        const QJsonObject tSigned =
            QJsonDocument::fromJson(tBytes).object().value(QLatin1String("signed")).toObject();
        const QString tExpires = tSigned.value(QLatin1String("expires")).toString();
        const QDateTime tDate = QDateTime::fromString(tExpires, Qt::ISODate);
        if (!tDate.isValid()) {
            return {}; // never complete: what expires when is not known
        }
        tEarliest = tEarliest.isValid() ? qMin(tEarliest, tDate) : tDate;
    }
    return tEarliest;
}

void TrustFolder::readNote()
{
    QByteArray tBytes;
    os::readFile(mFileSystem, mNotePath, sMaxMetadataSize, &tBytes);
    const QJsonObject tNote = QJsonDocument::fromJson(tBytes).object();
    const auto tText = [&tNote](const char* pName) {
        return tNote.value(QLatin1String(pName)).toString().toUtf8();
    };
    mRootHash = tText("root");
    mCompleteState = tText("complete");
    mCompleteUntil = QDateTime::fromString(QString::fromUtf8(tText("until")), Qt::ISODate);
    mTimestampValidators = {tText("etag"), tText("lastModified")};
}

void TrustFolder::writeNote()
{
    const QJsonObject tNote{
        {QStringLiteral("root"), QString::fromUtf8(mRootHash)},
        {QStringLiteral("complete"), QString::fromUtf8(mCompleteState)},
        {QStringLiteral("until"), mCompleteUntil.toUTC().toString(Qt::ISODate)},
        {QStringLiteral("etag"), QString::fromUtf8(mTimestampValidators.mEtag)},
        {QStringLiteral("lastModified"), QString::fromUtf8(mTimestampValidators.mLastModified)},
    };
    // Renamed into place, since with half a note the link to the administrator's root file would be lost.
    const QString tNew = mNotePath + QStringLiteral(".new");
    if (!os::writeFile(mFileSystem, tNew, QJsonDocument(tNote).toJson(), sPrivateFile)) {
        mFileSystem.rename(QFile::encodeName(tNew), QFile::encodeName(mNotePath));
    }
}

} // namespace tarn::vkservice::update
