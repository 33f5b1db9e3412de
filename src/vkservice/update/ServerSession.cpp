#include "update/ServerSession.h"

#include "os/AbortFlag.h"
#include "tuf/Hashes.h"
#include "tuf/Updater.h"
#include "update/RunRequest.h"
#include "update/Sink.h"

#include <QtCore/QDateTime>
#include <QtCore/QUrl>

#include <algorithm>
#include <deque>
#include <utility>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

const QString sMetadataFolder = u"metadata/"_s;
const QString sTimestampFile = u"timestamp.json"_s;
constexpr qint64 sMaxTimestampLength = 16 * 1024;

// Any other failure to get a metadata file counts as a file that the server did not deliver.
Failure metadataFailure(const Failure& pFailure)
{
    using Kind = Failure::Kind;
    const bool tIsKnown = pFailure.mKind == Kind::NotFound || pFailure.mKind == Kind::Untrusted ||
                          pFailure.mKind == Kind::Canceled;
    return tIsKnown ? pFailure : pFailure.as(Kind::Unreachable);
}

} // namespace

// Gets the metadata, and remembers the timestamp as it came last.
class ServerSession::MetadataFetcher : public tuf::Fetcher
{
public:
    MetadataFetcher(Source& pSource, const os::AbortFlag& pAbort) : mSource(pSource), mAbort(pAbort) {}

    Failure askTimestamp(const Validators& pKnown)
    {
        QList<tuf::FetchedFile> tFiles{{.mPath = sTimestampFile, .mMaxLength = sMaxTimestampLength}};
        get(&tFiles, pKnown);
        return tFiles.first().mFailure;
    }

    Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override
    {
        QList<tuf::FetchedFile> tFiles{{.mPath = pPath, .mMaxLength = pMaxLength}};
        get(&tFiles, {});
        *pTo = tFiles.first().mBytes;
        return tFiles.first().mFailure;
    }

    bool fetchTogether(QList<tuf::FetchedFile>* pFiles) override
    {
        if (!mSource.sharesConnection()) {
            return false;
        }
        get(pFiles, {});
        return true;
    }

    bool notModified() const { return mNotModified; }
    const QByteArray& timestamp() const { return mTimestamp; }
    const Validators& validators() const { return mValidators; }

private:
    void get(QList<tuf::FetchedFile>* pFiles, const Validators& pKnown)
    {
        std::deque<MemorySink> tSinks;
        std::deque<Transfer> tTransfers;
        QList<Transfer*> tToDo;
        for (const tuf::FetchedFile& tFile : std::as_const(*pFiles)) {
            tSinks.emplace_back(tFile.mMaxLength);
            tTransfers.push_back({sMetadataFolder + tFile.mPath, &tSinks.back(), pKnown, {}, false, {}});
            tToDo.append(&tTransfers.back());
        }
        mSource.run(tToDo, mAbort);
        for (size_t i = 0; i < tTransfers.size(); ++i) {
            tuf::FetchedFile& tFile = (*pFiles)[static_cast<qsizetype>(i)];
            tFile.mBytes = tSinks[i].bytes();
            tFile.mFailure = metadataFailure(tTransfers[i].mFailure);
            if (tFile.mPath == sTimestampFile) {
                mNotModified = tTransfers[i].mNotModified;
                mTimestamp = tFile.mFailure ? QByteArray() : tFile.mBytes;
                mValidators = tTransfers[i].mValidators;
            }
        }
    }

    Source& mSource;
    const os::AbortFlag& mAbort;
    bool mNotModified = false;
    QByteArray mTimestamp;
    Validators mValidators;
};

QString serverLabel(const ServerAccess& pServer)
{
    const QString tAddress = QUrl(pServer.mUri).toDisplayString(QUrl::RemoveUserInfo);
    // The address of a server may stand in for its name, and may contain a password.
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

Failure ServerSession::open(QStringList* pWarnings)
{
    QString tReason;
    mSource = makeSource(mServer, mRequest, mFileSystem, &tReason);
    if (!mSource) {
        return {Failure::Kind::NoServer, tReason};
    }
    if (const Failure tFailure = mTrust.prepare(mRequest.mRootFile, mServer.mUri)) {
        return tFailure;
    }
    mNow = mTrust.now();
    mNote.emplace(mFileSystem, mTrust, mServer.mUri);
    MetadataFetcher tFetcher(*mSource, mAbort);
    const bool tIsComplete = mNote->isComplete(withChoices(mState), mRequest.mChoices.mIsScheduled);
    if (const Failure tFailure =
            tFetcher.askTimestamp(tIsComplete ? mNote->timestampValidators() : Validators())) {
        return tFailure;
    }
    mNothingNew = tIsComplete && (tFetcher.notModified() || mNote->isTimestamp(tFetcher.timestamp()));
    return mNothingNew ? Failure() : refresh(tFetcher, pWarnings);
}

Failure ServerSession::refresh(MetadataFetcher& pFetcher, QStringList* pWarnings)
{
    tuf::Updater tUpdater(mFileSystem, mTrust.path(), pFetcher, QDateTime::currentDateTimeUtc());
    QList<tuf::TargetFile> tTargets;
    Failure tFailure = tUpdater.refresh(pFetcher.timestamp());
    if (!tFailure) {
        tFailure = tUpdater.allTargets(&tTargets);
    }
    if (mAbort.isSet()) {
        return Failure::canceled();
    }
    if (tFailure.mKind == Failure::Kind::Damaged) {
        const QString tText = u"%1. If the problem persists, remove the folder %2: the next update starts "
                              "again from the root file"_s;
        return {Failure::Kind::Damaged, tText.arg(tFailure.mText, mTrust.path())};
    }
    if (tFailure) {
        return tFailure;
    }
    mNow = mTrust.now();
    mOffers = usableOffers(tTargets, pWarnings);
    mSnapshotVersion = tUpdater.snapshotVersion();
    mTimestamp = pFetcher.timestamp();
    mTimestampValidators = pFetcher.validators();
    return {};
}

void ServerSession::markComplete(const QByteArray& pState, ServerNote::Rest pRest)
{
    if (mNothingNew) {
        return;
    }
    const QDateTime tEnd = mRequest.mChoices.nextEnd(now());
    if (tEnd.isValid()) {
        pRest.mLookAgain = pRest.mLookAgain.isValid() ? std::min(pRest.mLookAgain, tEnd) : tEnd;
    }
    mNote->setComplete(withChoices(pState), mTimestamp, mTimestampValidators, pRest);
}

QByteArray ServerSession::withChoices(const QByteArray& pState) const
{
    return tuf::sha256(pState + '\n' + mRequest.mChoices.state(now()));
}

} // namespace tarn::vkservice::update
