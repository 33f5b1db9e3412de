#include "mail/CurlTransport.h"

#include "internal/PlainText.h"
#include "mail/Address.h"
#include "mail/Headers.h"
#include "mail/Mail.h"
#include "mail/SmtpSettings.h"
#include "net/TlsTrust.h"

#include <curl/curl.h>

#include <QtCore/QUrl>

#include <memory>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

using vkcore::singleLine;

namespace {

constexpr long sConnectTimeoutSeconds = 30;

// The last traffic on the connection, to find out which command was refused.
struct Dialogue
{
    QByteArray mLastCommand; // only the verb: the arguments may contain a password
    QByteArray mLastReply;
    bool mOver = false; // QUIT follows any failure; the command before it counts

    int lastCode() const { return mLastReply.left(3).toInt(); }
};

int recordDialogue(CURL*, curl_infotype pType, char* pData, size_t pSize, void* pDialogue)
{
    auto* tDialogue = static_cast<Dialogue*>(pDialogue);
    const auto tSize = static_cast<qsizetype>(pSize);
    if (pType == CURLINFO_HEADER_OUT && QByteArrayView(pData, tSize).startsWith("QUIT")) {
        tDialogue->mOver = true;
    }
    if (tDialogue->mOver) {
        return 0;
    }
    if (pType == CURLINFO_HEADER_OUT) {
        tDialogue->mLastCommand = QByteArray(pData, qMin<qsizetype>(tSize, 4)).toUpper();
    } else if (pType == CURLINFO_HEADER_IN && tSize > 0) {
        tDialogue->mLastReply = QByteArray(pData, qMin<qsizetype>(tSize, 512));
    }
    return 0;
}

int checkCanceled(void* pCanceled, curl_off_t, curl_off_t, curl_off_t, curl_off_t)
{
    return static_cast<std::atomic<bool>*>(pCanceled)->load() ? 1 : 0;
}

struct StringList
{
    StringList() = default;
    ~StringList() { curl_slist_free_all(mHead); }
    StringList(const StringList&) = delete;
    StringList& operator=(const StringList&) = delete;

    bool append(const QByteArray& pText)
    {
        curl_slist* tNew = curl_slist_append(mHead, pText.constData());
        if (tNew != nullptr) {
            mHead = tNew;
        }
        return tNew != nullptr;
    }

    curl_slist* mHead = nullptr;
};

QByteArray withMailLineEnds(const QString& pText)
{
    return pText.toUtf8().replace("\n", "\r\n");
}

// The transfer of one mail. libcurl copies all strings but not the lists, which are stored here.
class Transfer
{
public:
    Transfer() : mCurl(curl_easy_init()) {}
    ~Transfer()
    {
        curl_easy_cleanup(mCurl);
        curl_mime_free(mBody);
    }
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    bool prepare(const Mail& pMail, const SmtpSettings& pSettings, std::atomic<bool>* pCanceled)
    {
        return mCurl != nullptr && setServer(pSettings) && setLimits(pSettings, pCanceled) &&
               setLogin(pSettings) && setEnvelope(pMail, pSettings) && setBody(pMail);
    }

    SendResult perform(const SmtpSettings& pSettings, const std::atomic<bool>& pCanceled)
    {
        const CURLcode tCode = curl_easy_perform(mCurl);
        if (tCode == CURLE_OK) {
            return {SendResult::Outcome::Sent, {}};
        }
        if (pCanceled) {
            return {SendResult::Outcome::Canceled, u"sending was cut short"_s};
        }
        const SendResult::Outcome tOutcome = outcomeOfFailure();
        return {tOutcome, reason(tCode, tOutcome, pSettings)};
    }

private:
    template <typename T>
    bool set(CURLoption pOption, T pValue)
    {
        return curl_easy_setopt(mCurl, pOption, pValue) == CURLE_OK;
    }

    bool setServer(const SmtpSettings& pSettings)
    {
        long tTls = CURLUSESSL_ALL;
        switch (pSettings.effectiveStartTls()) {
        case SmtpSettings::StartTls::Required:
            break;
        case SmtpSettings::StartTls::IfOffered:
            tTls = CURLUSESSL_TRY;
            break;
        case SmtpSettings::StartTls::Never:
            tTls = CURLUSESSL_NONE;
            break;
        }
        const QByteArray tUrl = QUrl(pSettings.mUrl, QUrl::StrictMode).toEncoded();
        return set(CURLOPT_URL, tUrl.constData()) && set(CURLOPT_PROTOCOLS_STR, "smtp,smtps") &&
               set(CURLOPT_PROXY, "") && set(CURLOPT_USE_SSL, tTls) &&
               net::setTlsTrust(mCurl, pSettings.mCaFile);
    }

    bool setLimits(const SmtpSettings& pSettings, std::atomic<bool>* pCanceled)
    {
        const long tTimeout = pSettings.mTimeoutSeconds;
        return set(CURLOPT_NOSIGNAL, 1L) &&
               set(CURLOPT_CONNECTTIMEOUT, qMin(tTimeout, sConnectTimeoutSeconds)) &&
               set(CURLOPT_SERVER_RESPONSE_TIMEOUT, tTimeout) && set(CURLOPT_TIMEOUT, 5 * tTimeout) &&
               set(CURLOPT_FORBID_REUSE, 1L) && set(CURLOPT_QUICK_EXIT, 1L) && set(CURLOPT_NOPROGRESS, 0L) &&
               set(CURLOPT_XFERINFOFUNCTION, checkCanceled) && set(CURLOPT_XFERINFODATA, pCanceled) &&
               set(CURLOPT_VERBOSE, 1L) && set(CURLOPT_DEBUGFUNCTION, recordDialogue) &&
               set(CURLOPT_DEBUGDATA, &mDialogue) && set(CURLOPT_ERRORBUFFER, mErrorText);
    }

    bool setLogin(const SmtpSettings& pSettings)
    {
        return pSettings.mUser.isEmpty() || (set(CURLOPT_USERNAME, pSettings.mUser.toUtf8().constData()) &&
                                             set(CURLOPT_PASSWORD, pSettings.mPassword.toUtf8().constData()));
    }

    bool setEnvelope(const Mail& pMail, const SmtpSettings& pSettings)
    {
        const Sender tSender = Sender::fromString(pSettings.mSender);
        const QByteArray tFrom = "<" + tSender.mAddress.toLatin1() + ">";
        if (!set(CURLOPT_MAIL_FROM, tFrom.constData()) ||
            !mRecipients.append("<" + pMail.mRecipient.toLatin1() + ">")) {
            return false;
        }
        // libcurl's default content type would be multipart/mixed, which some readers show as attachments.
        QList<QByteArray> tHeaders = mailHeaders(pMail, tSender);
        tHeaders.append("Content-Type: multipart/alternative");
        for (const QByteArray& tHeader : tHeaders) {
            if (!mHeaders.append(tHeader)) {
                return false;
            }
        }
        return set(CURLOPT_MAIL_RCPT, mRecipients.mHead) && set(CURLOPT_HTTPHEADER, mHeaders.mHead);
    }

    bool addPart(const QString& pText, const char* pType)
    {
        curl_mimepart* tPart = curl_mime_addpart(mBody);
        const QByteArray tText = withMailLineEnds(pText);
        return tPart != nullptr &&
               curl_mime_data(tPart, tText.constData(), static_cast<size_t>(tText.size())) == CURLE_OK &&
               curl_mime_type(tPart, pType) == CURLE_OK &&
               curl_mime_encoder(tPart, "quoted-printable") == CURLE_OK;
    }

    bool setBody(const Mail& pMail)
    {
        mBody = curl_mime_init(mCurl);
        return mBody != nullptr && addPart(pMail.mText, "text/plain; charset=utf-8") &&
               addPart(pMail.mHtml, "text/html; charset=utf-8") && set(CURLOPT_MIMEPOST, mBody);
    }

    // A reply to the address or to the content concerns this mail only. A reply at another point (the
    // greeting, the login, the sender) concerns the settings, as does a demand for a login or the end of the
    // session at any point.
    SendResult::Outcome outcomeOfFailure() const
    {
        const int tReply = mDialogue.lastCode();
        const bool tAboutMail = mDialogue.mLastCommand == "RCPT" || mDialogue.mLastCommand == "DATA";
        if (!tAboutMail || tReply == 530 || tReply == 538 || tReply == 421) {
            return SendResult::Outcome::ServerFailed;
        }
        switch (tReply / 100) {
        case 4:
            return SendResult::Outcome::Deferred;
        case 5:
            return SendResult::Outcome::Refused;
        default:
            return SendResult::Outcome::ServerFailed;
        }
    }

    QString reason(CURLcode pCode, SendResult::Outcome pOutcome, const SmtpSettings& pSettings) const
    {
        const QString tServer = QUrl(pSettings.mUrl).host();
        const QString tReply = singleLine(QString::fromUtf8(mDialogue.mLastReply));
        const QString tDetail =
            singleLine(mErrorText[0] != '\0' ? QString::fromUtf8(mErrorText)
                                             : QString::fromUtf8(curl_easy_strerror(pCode)));
        if (pOutcome != SendResult::Outcome::ServerFailed) {
            return u"the mail server %1 refused it: %2"_s.arg(tServer, tReply);
        }
        switch (pCode) {
        case CURLE_LOGIN_DENIED:
            return u"the mail server %1 refused mail.user and mail.password: %2"_s.arg(tServer, tReply);
        case CURLE_USE_SSL_FAILED:
            return u"the mail server %1 offers no encryption (STARTTLS): %2"_s.arg(tServer, tDetail);
        case CURLE_PEER_FAILED_VERIFICATION:
            return u"the certificate of the mail server %1 is not trusted: %2"_s.arg(tServer, tDetail);
        case CURLE_COULDNT_RESOLVE_HOST:
        case CURLE_COULDNT_CONNECT:
        case CURLE_OPERATION_TIMEDOUT:
            return u"the mail server %1 gives no answer: %2"_s.arg(tServer, tDetail);
        default:
            return tReply.isEmpty()
                       ? u"the mail server %1: %2"_s.arg(tServer, tDetail)
                       : u"the mail server %1: %2 (its last reply: %3)"_s.arg(tServer, tDetail, tReply);
        }
    }

    CURL* mCurl;
    curl_mime* mBody = nullptr;
    StringList mHeaders;
    StringList mRecipients;
    Dialogue mDialogue;
    char mErrorText[CURL_ERROR_SIZE] = {};
};

} // namespace

CurlTransport::CurlTransport()
{
    curl_global_init(CURL_GLOBAL_DEFAULT);
}

CurlTransport::~CurlTransport()
{
    curl_global_cleanup();
}

SendResult CurlTransport::send(const Mail& pMail, const SmtpSettings& pSettings)
{
    if (mCanceled) {
        return {SendResult::Outcome::Canceled, u"sending was cut short"_s};
    }
    const QString tProblem = pSettings.problem();
    if (!tProblem.isEmpty()) {
        return {SendResult::Outcome::ServerFailed, tProblem};
    }
    if (!isMailAddress(pMail.mRecipient)) {
        return {SendResult::Outcome::Refused, u"the address is not valid"_s};
    }
    Transfer tTransfer;
    if (!tTransfer.prepare(pMail, pSettings, &mCanceled)) {
        return {SendResult::Outcome::ServerFailed, u"the transfer could not be set up"_s};
    }
    return tTransfer.perform(pSettings, mCanceled);
}

void CurlTransport::cancel()
{
    mCanceled = true;
}

} // namespace tarn::vkservice::mail
