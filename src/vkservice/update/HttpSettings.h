#pragma once

#include "update/RunRequest.h"

#include <QtCore/QByteArray>

#include <curl/curl.h>

namespace tarn::vkservice::update {

// How to speak to one https server: what is the same for all its files.
struct HttpSettings
{
    HttpSettings(const ServerAccess& pServer, const RunRequest& pRequest);

    // Everything but the file's own address and callbacks. False if the transfer is not to be begun.
    [[nodiscard]] bool apply(CURL* pHandle) const;

    QByteArray mBase; // address without user, password and trailing slash
    QByteArray mUser;
    QByteArray mPassword;
    QByteArray mProxy; // empty: none
    QByteArray mNoProxy;
    QByteArray mProxyUser;
    QByteArray mProxyPassword;
    QString mCaFile;
    Patience mPatience;
    int mParallel = 1;
    qint64 mBytesPerSecond = 0;      // of all files together; 0: no limit
    qint64 mLeastBytesPerSecond = 0; // of all files together
};

} // namespace tarn::vkservice::update
