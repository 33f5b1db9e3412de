#pragma once

#include "update/Offers.h"
#include "update/ServerNote.h"
#include "update/Source.h"
#include "update/TrustFolder.h"

#include <QtCore/QList>

#include <memory>
#include <optional>

namespace tarn::vkservice::update {

// One server in one run: its offers, verified by its metadata.
class ServerSession
{
public:
    // pState identifies everything on this machine that a plan depends on, but for the choices of the
    // request: while both and the server's timestamp are unchanged, there is nothing to do.
    ServerSession(const RunRequest& pRequest, const ServerAccess& pServer, const QByteArray& pState,
                  os::FileSystem& pFileSystem, const os::AbortFlag& pAbort);
    ~ServerSession();

    // Asks the server: only for one small file if the last complete run saw the same state. Unusable packages
    // go to *pWarnings.
    Failure open(QStringList* pWarnings);
    // The version of the offered state, 0 if nothing is new. It never decreases for servers that open()
    // accepted.
    qint64 snapshotVersion() const { return mSnapshotVersion; }
    const QList<Offer>& offers() const { return mOffers; }
    // The time of open(), as far as the clock and the server's files tell it: a plan and its note go by the
    // same.
    QDateTime now() const { return mNow; }
    // True if nothing has changed since the last complete run, which left this out.
    bool hasNothingNew() const { return mNothingNew; }
    const QList<vkcore::protocol::LeftOutPackage>& leftOutBefore() const { return mNote->rest().mPackages; }

    const QString& label() const { return mLabel; }
    Source& source() { return *mSource; }

    // Records that everything this server offers is installed but for the rest, for open() in later runs.
    void markComplete(const QByteArray& pState, ServerNote::Rest pRest);

private:
    class MetadataFetcher;
    Failure refresh(MetadataFetcher& pFetcher, QStringList* pWarnings);
    QByteArray withChoices(const QByteArray& pState) const;

    const RunRequest& mRequest;
    const ServerAccess& mServer;
    QByteArray mState;
    os::FileSystem& mFileSystem;
    const os::AbortFlag& mAbort;
    QString mLabel;
    TrustFolder mTrust;
    std::optional<ServerNote> mNote;
    std::unique_ptr<Source> mSource;
    QByteArray mTimestamp;
    Validators mTimestampValidators;
    qint64 mSnapshotVersion = 0;
    QList<Offer> mOffers;
    bool mNothingNew = false;
    QDateTime mNow;
};

} // namespace tarn::vkservice::update
