#pragma once

#include "update/HttpSettings.h"
#include "update/RunRequest.h"
#include "update/Source.h"

#include <chrono>

namespace tarn::vkservice::update {

// A server reached over https. Its connections live as long as the object.
class HttpSource : public Source
{
public:
    HttpSource(const ServerAccess& pServer, const RunRequest& pRequest);
    ~HttpSource() override;

    void run(const QList<Transfer*>& pTransfers, const os::AbortFlag& pAbort) override;
    bool sharesConnection() const override { return mSharesConnection; }

private:
    class Loop;

    HttpSettings mSettings;
    CURLM* mMulti;
    bool mSharesConnection = false;
    std::chrono::steady_clock::duration mMetadataTime; // the rest of it
};

} // namespace tarn::vkservice::update
