#pragma once

#include "tuf/Updater.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

// Fetches metadata from a web server, over https only. User and password are from ~/.netrc, a proxy from the
// environment. A fetch takes at most two minutes.
class HttpsFetcher : public tuf::Fetcher
{
public:
    // pFolder: the address of the metadata folder. pCaFile: see openMetadata().
    HttpsFetcher(const QString& pFolder, const QString& pCaFile);
    ~HttpsFetcher() override;
    HttpsFetcher(const HttpsFetcher&) = delete;
    HttpsFetcher& operator=(const HttpsFetcher&) = delete;

    Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override;

private:
    bool setUp(const QByteArray& pUrl);

    QString mFolder;
    QString mCaFile;
    void* mCurl; // CURL
};

} // namespace tarn::vkpublish
