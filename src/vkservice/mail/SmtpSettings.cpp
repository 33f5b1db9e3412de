#include "mail/SmtpSettings.h"

#include "mail/Address.h"

#include <QtCore/QRegularExpression>
#include <QtCore/QUrl>

#include <algorithm>

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
    const bool tScheme = tUrl.scheme() == QLatin1String("smtp") || tUrl.scheme() == QLatin1String("smtps");
    if (!tUrl.isValid() || !tScheme || tUrl.host().isEmpty() || tUrl.port(25) == 0) {
        return QStringLiteral("mail.url has to be smtp://HOST[:PORT] or smtps://HOST[:PORT]");
    }
    if (!tUrl.userInfo().isEmpty()) {
        return QStringLiteral(
            "mail.url must not hold a user or a password; they belong in mail.user and mail.password");
    }
    // The path is the name that the machine gives itself in front of the mail server.
    static const QRegularExpression sPath(QStringLiteral("\\A(/[A-Za-z0-9.-]*)?\\z"));
    if (tUrl.hasQuery() || tUrl.hasFragment() || !sPath.match(tUrl.path(QUrl::FullyEncoded)).hasMatch()) {
        return QStringLiteral(
            "mail.url may hold nothing behind the host and port but the name of this machine");
    }
    return {};
}

} // namespace

QString SmtpSettings::problem() const
{
    if (!isOn()) {
        return QStringLiteral("mail.url is not set");
    }
    QString tUrlProblem = urlProblem(mUrl);
    if (!tUrlProblem.isEmpty()) {
        return tUrlProblem;
    }
    if (Sender::fromString(mSender).mAddress.isEmpty()) {
        return QStringLiteral("mail.sender has to be an e-mail address, alone or as NAME <ADDRESS>");
    }
    if (mUser.isEmpty() && !mPassword.isEmpty()) {
        return QStringLiteral("mail.password is set without mail.user");
    }
    if (hasControlCharacters(mUser) || hasControlCharacters(mPassword)) {
        return QStringLiteral("mail.user and mail.password must not hold control characters");
    }
    const bool tEncrypted = mUrl.startsWith(QLatin1String("smtps:"), Qt::CaseInsensitive);
    if (!tEncrypted && !mUser.isEmpty() && mStartTls == StartTls::Never && !mAllowPlaintext) {
        return QStringLiteral("the password would travel unencrypted: set mail.startTls to required, or "
                              "mail.allowPlaintext to true where the way to the mail server is safe");
    }
    return {};
}

SmtpSettings::StartTls SmtpSettings::effectiveStartTls() const
{
    const bool tMust = !mUser.isEmpty() && !mAllowPlaintext;
    return tMust ? StartTls::Required : mStartTls;
}

} // namespace tarn::vkservice::mail
