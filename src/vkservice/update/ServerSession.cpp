#include "update/ServerSession.h"

#include "os/AbortFlag.h"

#include <QtCore/QDateTime>
#include <QtCore/QUrl>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

const QString sMetadataFolder = u"metadata/"_s;
const QString sTimestampFile = u"timestamp.json"_s;
constexpr qint64 sMaxTimestampLength = 16 * 1024;

tuf::ErrorKind tufKind(Trouble::Kind pKind)
{
    switch (pKind) {
    case Trouble::Kind::None:
        return tuf::ErrorKind::None;
    case Trouble::Kind::NotFound:
        return tuf::ErrorKind::NotFound;
    case Trouble::Kind::Untrusted:
        return tuf::ErrorKind::Untrusted;
    case Trouble::Kind::Canceled:
        return tuf::ErrorKind::Canceled;
    default:
        return tuf::ErrorKind::Unreachable;
    }
}

} // namespace

// Gets the metadata. The timestamp that was asked for already, to see whether anything is new, is not asked
// for again.
class ServerSession::MetadataFetcher : public tuf::Fetcher
{
public:
    MetadataFetcher(Source& pSource, const os::AbortFlag& pAbort) : mSource(pSource), mAbort(pAbort) {}

    Trouble askTimestamp(const Validators& pKnown)
    {
        MemorySink tSink(sMaxTimestampLength);
        Transfer tTransfer{sMetadataFolder + sTimestampFile, &tSink, pKnown, {}, false, {}};
        mSource.run({&tTransfer}, mAbort);
        mNotModified = tTransfer.mNotModified;
        mHasTimestamp = !tTransfer.mTrouble && !mNotModified;
        mTimestamp = tSink.bytes();
        mValidators = tTransfer.mValidators;
        return tTransfer.mTrouble;
    }

    tuf::Error fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override
    {
        if (pPath == sTimestampFile) {
            const Trouble tTrouble = mHasTimestamp ? Trouble() : askTimestamp({});
            *pTo = mTimestamp;
            return {tufKind(tTrouble.mKind), tTrouble.mText};
        }
        MemorySink tSink(pMaxLength);
        Transfer tTransfer{sMetadataFolder + pPath, &tSink, {}, {}, false, {}};
        mSource.run({&tTransfer}, mAbort);
        *pTo = tSink.bytes();
        return {tufKind(tTransfer.mTrouble.mKind), tTransfer.mTrouble.mText};
    }

    bool notModified() const { return mNotModified; }
    const QByteArray& timestamp() const { return mTimestamp; }
    const Validators& validators() const { return mValidators; }

private:
    Source& mSource;
    const os::AbortFlag& mAbort;
    bool mHasTimestamp = false;
    bool mNotModified = false;
    QByteArray mTimestamp;
    Validators mValidators;
};

QString serverLabel(const ServerAccess& pServer)
{
    const QString tAddress = QUrl(pServer.mUri).toDisplayString(QUrl::RemoveUserInfo);
    // A server without a name may come with its address for one, which may hold a password.
    return pServer.mName.isEmpty() || pServer.mName == pServer.mUri
               ? tAddress
               : u"%1 (%2)"_s.arg(pServer.mName, tAddress);
}

ServerSession::ServerSession(const RunRequest& pRequest, const ServerAccess& pServer,
                             const QByteArray& pState, os::FileSystem& pFileSystem,
                             const os::AbortFlag& pAbort)
    : mRequest(pRequest), mServer(pServer), mState(pState), mFileSystem(pFileSystem), mAbort(pAbort),
      mLabel(serverLabel(pServer)), mTrust(pFileSystem, pRequest.mStateDir)
{
}

ServerSession::~ServerSession() = default;

Trouble ServerSession::open(QStringList* pWarnings)
{
    QString tReason;
    mSource = makeSource(mServer, mRequest, mFileSystem, &tReason);
    if (!mSource) {
        return {Trouble::Kind::NoServer, tReason};
    }
    if (const Trouble tTrouble = mTrust.prepare(mRequest.mRootFile, mServer.mUri)) {
        return tTrouble;
    }
    mNote.emplace(mFileSystem, mTrust, mServer.mUri);
    MetadataFetcher tFetcher(*mSource, mAbort);
    if (mNote->isComplete(mState)) {
        if (const Trouble tTrouble = tFetcher.askTimestamp(mNote->timestampValidators())) {
            return tTrouble;
        }
        mNothingNew = tFetcher.notModified() || mNote->isTimestamp(tFetcher.timestamp());
        if (mNothingNew) {
            return {};
        }
    }
    return refresh(tFetcher, pWarnings);
}

Trouble ServerSession::refresh(MetadataFetcher& pFetcher, QStringList* pWarnings)
{
    tuf::Updater tUpdater(mFileSystem, mTrust.path(), pFetcher, QDateTime::currentDateTimeUtc());
    QList<tuf::TargetFile> tTargets;
    tuf::Error tError = tUpdater.refresh();
    if (!tError) {
        tError = tUpdater.allTargets(&tTargets);
    }
    if (mAbort.isSet()) {
        return Trouble::canceled();
    }
    if (tError.mKind == tuf::ErrorKind::Local) {
        const QString tText = u"%1. If it stays so, remove the folder %2: the next update starts "
                              "again from the root file"_s;
        return {Trouble::Kind::Damaged, tText.arg(tError.mText, mTrust.path())};
    }
    if (tError) {
        return Trouble::from(tError);
    }
    mOffers = usableOffers(tTargets, pWarnings);
    mSnapshotVersion = tUpdater.snapshotVersion();
    mTimestamp = pFetcher.timestamp();
    mTimestampValidators = pFetcher.validators();
    return {};
}

void ServerSession::markComplete(const QByteArray& pState)
{
    if (!mNothingNew) {
        mNote->setComplete(pState, mTimestamp, mTimestampValidators);
    }
}

} // namespace tarn::vkservice::update
