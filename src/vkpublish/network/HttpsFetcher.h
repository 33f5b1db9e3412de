#pragma once

#include "network/HttpsClient.h"

#include "tuf/Updater.h"

namespace tarn::vkpublish {

// Fetches metadata from a web server.
class HttpsFetcher : public tuf::Fetcher
{
public:
    // pAccess: of the metadata folder.
    explicit HttpsFetcher(const HttpsAccess& pAccess) : mClient(pAccess) {}

    Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override;

private:
    HttpsClient mClient;
};

} // namespace tarn::vkpublish
