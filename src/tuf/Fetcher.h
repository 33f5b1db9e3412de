#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::tuf {

// A metadata file to get, and what came of it.
struct FetchedFile
{
    QString mPath; // relative to the repository's metadata folder, already percent-encoded ("3.root.json")
    qint64 mMaxLength = 0;
    bool mIsGuess = false; // perhaps nobody will ask for it

    Failure mFailure = {};
    QByteArray mBytes = {};
};

// Fetches metadata files. The updater gives the maximum length; a fetcher never returns more.
class Fetcher
{
public:
    virtual ~Fetcher() = default;
    // A file longer than pMaxLength is Failure::Kind::Untrusted; over HTTP both 403 and 404 are
    // Failure::Kind::NotFound.
    virtual Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) = 0;
    // Several files in the time of one. False: this fetcher can't, and has asked for none of them.
    virtual bool fetchTogether(QList<FetchedFile>* /*pFiles*/) { return false; }
};

} // namespace tarn::tuf
