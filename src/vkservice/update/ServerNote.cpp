#include "update/ServerNote.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"
#include "update/TrustFolder.h"

#include <QtCore/QFile>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr mode_t sPrivateFile = 0600;
constexpr qint64 sMaxNoteSize = 16 * 1024 * 1024;

} // namespace

ServerNote::ServerNote(os::FileSystem& pFileSystem, const TrustFolder& pTrust, const QString& pUri)
    : mFileSystem(pFileSystem), mTrust(pTrust), mPath(pTrust.notePath(pUri))
{
    const QByteArray tBytes = os::readFile(mFileSystem, mPath, sMaxNoteSize).valueOr({});
    const QJsonObject tNote = QJsonDocument::fromJson(tBytes).object();
    const auto tText = [&tNote](const char* pName) {
        return tNote.value(QLatin1String(pName)).toString().toUtf8();
    };
    mCompleteState = tText("complete");
    mCompleteUntil = QDateTime::fromString(QString::fromUtf8(tText("until")), Qt::ISODate);
    mTimestampHash = tText("timestamp");
    mTimestampValidators = {tText("etag"), tText("lastModified")};
    mRest.mWaits = tNote.value("waits"_L1).toBool();
    QString tFault;
    const auto tLeftOut = vkcore::protocol::fromJson<vkcore::protocol::LeftOutPackages>(
        QJsonObject{{u"packages"_s, tNote.value("leftOut"_L1).toArray()}}, &tFault);
    if (tLeftOut) {
        mRest.mPackages = tLeftOut->mPackages;
    } else {
        mCompleteState.clear(); // what was left out has to be found again
    }
}

bool ServerNote::isComplete(const QByteArray& pState, bool pIsScheduled) const
{
    return (pIsScheduled || !mRest.mWaits) && !mCompleteState.isEmpty() && mCompleteState == pState &&
           !mTimestampHash.isEmpty() && mTimestampHash == mTrust.timestampHash() &&
           mTrust.now() < mCompleteUntil;
}

bool ServerNote::isTimestamp(const QByteArray& pFile) const
{
    return mTimestampHash == tuf::sha256(pFile);
}

void ServerNote::setComplete(const QByteArray& pState, const QByteArray& pTimestamp,
                             const Validators& pValidators, const Rest& pRest)
{
    QDateTime tUntil = mTrust.earliestExpiry();
    if (tUntil.isValid() && pRest.mLookAgain.isValid()) {
        tUntil = std::min(tUntil, pRest.mLookAgain);
    }
    const QJsonObject tNote{
        {u"complete"_s, QString::fromUtf8(pState)},
        {u"until"_s, tUntil.toUTC().toString(Qt::ISODate)},
        {u"timestamp"_s, QString::fromUtf8(tuf::sha256(pTimestamp))},
        {u"etag"_s, QString::fromUtf8(pValidators.mEtag)},
        {u"lastModified"_s, QString::fromUtf8(pValidators.mLastModified)},
        {u"waits"_s, pRest.mWaits},
        {u"leftOut"_s, vkcore::protocol::toJson(pRest.mPackages)},
    };
    // Without a note, the next run only sends more requests.
    (void)os::replaceFile(mFileSystem, mPath, QJsonDocument(tNote).toJson(), sPrivateFile);
}

} // namespace tarn::vkservice::update
