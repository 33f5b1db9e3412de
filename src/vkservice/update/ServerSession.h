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
    // pState identifies everything on this machine that a plan depends on: while it and the server's
    // timestamp are unchanged, there is nothing to do.
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

    const QString& label() const { return mLabel; }
    Source& source() { return *mSource; }

    // Records that everything this server offers is installed, for open() in later runs.
    void markComplete(const QByteArray& pState);

private:
    class MetadataFetcher;
    Failure refresh(MetadataFetcher& pFetcher, QStringList* pWarnings);

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
};

} // namespace tarn::vkservice::update
