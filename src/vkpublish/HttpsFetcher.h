#pragma once

#include "tuf/Updater.h"

#include <QtCore/QString>

namespace tarn::vkpublish {

// The metadata that a web server offers, over https alone. User and password come from ~/.netrc, a proxy from
// the environment. No file takes longer than two minutes.
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
