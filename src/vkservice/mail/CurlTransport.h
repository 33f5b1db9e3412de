#pragma once

#include "mail/SmtpTransport.h"

#include <atomic>

namespace tarn::vkservice::mail {

// SMTP through libcurl, one connection for each mail. Certificates are checked, with TLS 1.2 at least.
class CurlTransport : public SmtpTransport
{
public:
    CurlTransport();
    ~CurlTransport() override;
    CurlTransport(const CurlTransport&) = delete;
    CurlTransport& operator=(const CurlTransport&) = delete;

    SendResult send(const Mail& pMail, const SmtpSettings& pSettings) override;
    void cancel() override;

private:
    std::atomic<bool> mCanceled = false;
};

} // namespace tarn::vkservice::mail
