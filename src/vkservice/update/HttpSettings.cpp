#include "update/HttpSettings.h"

#include "net/TlsTrust.h"
#include "update/OsProxy.h"

#include <QtCore/QUrl>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr long sMaxRedirects = 5;
const QString sEnvironmentFile = u"/etc/environment"_s;

} // namespace

HttpSettings::HttpSettings(const ServerAccess& pServer, const RunRequest& pRequest)
    : mCaFile(pRequest.mCaFile), mPatience(pRequest.mPatience),
      mParallel(qBound(1, pRequest.mParallelDownloads, 16)), mBytesPerSecond(pRequest.mBytesPerSecond),
      mLeastBytesPerSecond(pRequest.mLeastBytesPerSecond)
{
    const QUrl tUrl(pServer.mUri);
    mBase = tUrl.toEncoded(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment |
                           QUrl::StripTrailingSlash);
    const bool tOwnUser = !pServer.mUser.isEmpty();
    mUser = (tOwnUser ? pServer.mUser : tUrl.userName(QUrl::FullyDecoded)).toUtf8();
    mPassword = (tOwnUser ? pServer.mPassword : tUrl.password(QUrl::FullyDecoded)).toUtf8();

    const vkcore::NetProxy& tProxy = pRequest.mProxy;
    if (pRequest.mProxyMode == vkcore::NetProxyModeOs) {
        const OsProxy tOs = osProxy(QProcessEnvironment::systemEnvironment(), sEnvironmentFile);
        mProxy = tOs.mProxy.toUtf8();
        mNoProxy = tOs.mNoProxy.toUtf8();
    } else if (tProxy.mEnabled && tProxy.mConfigured) {
        mProxy = u"%1:%2"_s.arg(tProxy.mHost).arg(tProxy.mPort).toUtf8();
        mProxyUser = tProxy.mUser.toUtf8();
        mProxyPassword = tProxy.mPassword.toUtf8();
    }
}

bool HttpSettings::apply(CURL* pHandle) const
{
    curl_easy_setopt(pHandle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(pHandle, CURLOPT_USERAGENT, "vkservice");
    curl_easy_setopt(pHandle, CURLOPT_PATH_AS_IS, 1L);
    // All files share a connection, if the server can do that: its certificates have more bytes than many a
    // file.
    curl_easy_setopt(pHandle, CURLOPT_PIPEWAIT, 1L);
    curl_easy_setopt(pHandle, CURLOPT_PROTOCOLS_STR, "https");
    curl_easy_setopt(pHandle, CURLOPT_REDIR_PROTOCOLS_STR, "https");
    curl_easy_setopt(pHandle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(pHandle, CURLOPT_MAXREDIRS, sMaxRedirects);
    if (!mUser.isEmpty()) {
        // Sent with the first request: the connection is encrypted, and waiting for a refusal would double
        // all requests. Never sent to another host.
        curl_easy_setopt(pHandle, CURLOPT_HTTPAUTH, static_cast<long>(CURLAUTH_BASIC));
        curl_easy_setopt(pHandle, CURLOPT_USERNAME, mUser.constData());
        curl_easy_setopt(pHandle, CURLOPT_PASSWORD, mPassword.constData());
    }
    // An empty text stops curl from looking for a proxy itself.
    curl_easy_setopt(pHandle, CURLOPT_PROXY, mProxy.constData());
    curl_easy_setopt(pHandle, CURLOPT_NOPROXY, mNoProxy.constData());
    if (!mProxyUser.isEmpty()) {
        curl_easy_setopt(pHandle, CURLOPT_PROXYUSERNAME, mProxyUser.constData());
        curl_easy_setopt(pHandle, CURLOPT_PROXYPASSWORD, mProxyPassword.constData());
    }
    curl_easy_setopt(pHandle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(mPatience.mConnectSeconds));
    curl_easy_setopt(pHandle, CURLOPT_LOW_SPEED_LIMIT, static_cast<long>(mPatience.mSlowBytesPerSecond));
    curl_easy_setopt(pHandle, CURLOPT_LOW_SPEED_TIME, static_cast<long>(mPatience.mSlowSeconds));
    return net::setTlsTrust(pHandle, mCaFile);
}

} // namespace tarn::vkservice::update
