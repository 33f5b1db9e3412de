#include "mail/SmtpSettings.h"

#include "mail/Address.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::mail {

namespace {

bool hasControlCharacters(const QString& pText)
{
    return std::any_of(pText.begin(), pText.end(),
                       [](QChar tChar) { return tChar.category() == QChar::Other_Control; });
}

QString urlProblem(const QString& pUrl)
{
    const QUrl tUrl(pUrl, QUrl::StrictMode);
    const bool tScheme = tUrl.scheme() == "smtp"_L1 || tUrl.scheme() == "smtps"_L1;
    if (!tUrl.isValid() || !tScheme || tUrl.host().isEmpty() || tUrl.port(25) == 0) {
        return u"mail.url has to be smtp://HOST[:PORT] or smtps://HOST[:PORT]"_s;
    }
    if (!tUrl.userInfo().isEmpty()) {
        return u"mail.url must not contain a user or a password; use mail.user and mail.password"_s;
    }
    // libcurl takes the path of the address as the machine's name in EHLO.
    static const QRegularExpression sPath(u"\\A(/[A-Za-z0-9.-]*)?\\z"_s);
    if (tUrl.hasQuery() || tUrl.hasFragment() || !sPath.match(tUrl.path(QUrl::FullyEncoded)).hasMatch()) {
        return u"mail.url may have only the name of this machine after host and port"_s;
    }
    return {};
}

} // namespace

QString SmtpSettings::problem() const
{
    if (!isOn()) {
        return u"mail.url is not set"_s;
    }
    QString tUrlProblem = urlProblem(mUrl);
    if (!tUrlProblem.isEmpty()) {
        return tUrlProblem;
    }
    if (Sender::fromString(mSender).mAddress.isEmpty()) {
        return u"mail.sender has to be an e-mail address, alone or as NAME <ADDRESS>"_s;
    }
    if (mUser.isEmpty() && !mPassword.isEmpty()) {
        return u"mail.password is set without mail.user"_s;
    }
    if (hasControlCharacters(mUser) || hasControlCharacters(mPassword)) {
        return u"mail.user and mail.password must not contain control characters"_s;
    }
    const bool tEncrypted = mUrl.startsWith("smtps:"_L1, Qt::CaseInsensitive);
    if (!tEncrypted && !mUser.isEmpty() && mStartTls == StartTls::Never && !mAllowPlaintext) {
        return u"the password would be sent unencrypted: set mail.startTls to required, or "
               "mail.allowPlaintext to true if the connection to the mail server is secure"_s;
    }
    return {};
}

SmtpSettings::StartTls SmtpSettings::effectiveStartTls() const
{
    const bool tMust = !mUser.isEmpty() && !mAllowPlaintext;
    return tMust ? StartTls::Required : mStartTls;
}

} // namespace tarn::vkservice::mail
