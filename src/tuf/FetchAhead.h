#pragma once

#include "tuf/Fetcher.h"

#include <QtCore/QHash>

namespace tarn::tuf {

// Gets files from a fetcher before their turn comes, several in the time of one, and gives each out once. It
// decides nothing: a file is verified when its turn comes, and a guess that was wrong counts as never made.
class FetchAhead
{
public:
    explicit FetchAhead(Fetcher& pFetcher) : mFetcher(pFetcher) {}

    // A file that is here already.
    void put(const QString& pPath, const QByteArray& pBytes);
    void ask(QList<FetchedFile> pFiles);
    bool has(const QString& pPath) const { return mFiles.contains(pPath); }
    void clear() { mFiles.clear(); }

    // As Fetcher::fetch: its path, and its length at the most.
    Result<QByteArray> fetch(const FetchedFile& pWanted);

private:
    Fetcher& mFetcher;
    QHash<QString, FetchedFile> mFiles;
};

} // namespace tarn::tuf
