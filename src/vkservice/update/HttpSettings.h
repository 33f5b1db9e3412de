#pragma once

#include "update/RunRequest.h"

#include <QtCore/QByteArray>

#include <curl/curl.h>

namespace tarn::vkservice::update {

// How to access one https server: the settings that all its files share.
struct HttpSettings
{
    HttpSettings(const ServerAccess& pServer, const RunRequest& pRequest);

    // Sets everything except the address and the callbacks of the file. False if the transfer must not start.
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
