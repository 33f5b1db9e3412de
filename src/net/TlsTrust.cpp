#include "net/TlsTrust.h"

#include <QtCore/QFile>

namespace tarn::net {

namespace {

// libcurl searches the system's folder of certificates in addition to a given file.
bool trustFileAlone(CURL* pHandle, const QByteArray& pFile)
{
    return curl_easy_setopt(pHandle, CURLOPT_CAINFO, pFile.constData()) == CURLE_OK &&
           curl_easy_setopt(pHandle, CURLOPT_CAPATH, nullptr) == CURLE_OK;
}

} // namespace

bool setTlsTrust(CURL* pHandle, const QString& pCaFile)
{
    return curl_easy_setopt(pHandle, CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2}) == CURLE_OK &&
           curl_easy_setopt(pHandle, CURLOPT_SSL_VERIFYPEER, 1L) == CURLE_OK &&
           curl_easy_setopt(pHandle, CURLOPT_SSL_VERIFYHOST, 2L) == CURLE_OK &&
           (pCaFile.isEmpty() || trustFileAlone(pHandle, QFile::encodeName(pCaFile)));
}

} // namespace tarn::net
