#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

#include <memory>
#include <optional>

namespace tarn::os {
class AbortFlag;
class FileSystem;
} // namespace tarn::os

namespace tarn::vkservice::update {

class Sink;
struct RunRequest;
struct ServerAccess;

// The validators that a server sent for a file, for a later request that asks if the file has changed.
struct Validators
{
    QByteArray mEtag;
    QByteArray mLastModified;

    bool isEmpty() const { return mEtag.isEmpty() && mLastModified.isEmpty(); }
};

// A stretch of a file on a server, as long as the maxLength() of its sink.
struct FilePart
{
    qint64 mFirst = 0;
    qint64 mFileLength = 0; // of the whole file
};

// One file to get, or a part of it.
struct Transfer
{
    QString mPath; // below the server's address, percent-encoded
    Sink* mSink = nullptr;
    Validators mKnown; // not empty: only if the file has changed since

    // The result.
    Failure mFailure;
    bool mNotModified = false;
    Validators mValidators;

    std::optional<FilePart> mPart = std::nullopt; // none: the whole file
    bool mHasNoParts = false; // a result, with a failure: the server only sends whole files
};

// A server, with any protocol. For one thread at a time.
class Source
{
public:
    virtual ~Source() = default;

    // Gets all of the files, or stores the failure in each transfer; returns early when pAbort is set.
    // Retries each file a few times if that can help.
    virtual void run(const QList<Transfer*>& pTransfers, const os::AbortFlag& pAbort) = 0;
    // True once it is known that several files come in the time of one, over the same connection.
    virtual bool sharesConnection() const { return false; }
};

// For a server with an https or file address. Null, with the reason in *pReason, for others.
std::unique_ptr<Source> makeSource(const ServerAccess& pServer, const RunRequest& pRequest,
                                   os::FileSystem& pFileSystem, QString* pReason);

// The label of the server in messages: its name, else its address without user and password.
QString serverLabel(const ServerAccess& pServer);

} // namespace tarn::vkservice::update
