#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::mail {

// The mail server, as configured. Each field names its variable.
struct SmtpSettings
{
    enum class StartTls
    {
        Required,
        IfOffered, // "ifOffered"
        Never,
    };

    QString mUrl; // mail.url: smtp://HOST[:PORT] or smtps://HOST[:PORT]; empty: no mails
    StartTls mStartTls = StartTls::Required; // mail.startTls; ignored with smtps
    QString mUser;                           // mail.user; empty: no login
    QString mPassword;                       // mail.password
    QString mSender;                         // mail.sender: "ADDRESS" or "NAME <ADDRESS>"
    QString mCaFile;                         // mail.caFile; empty: the system's certificates
    bool mAllowPlaintext = false;            // mail.allowPlaintext: the password may travel unencrypted
    int mTimeoutSeconds = 60;                // mail.timeout: for each answer of the server

    bool isOn() const { return !mUrl.isEmpty(); }
    // The reason, for the administrator, why no mail can be sent with these settings; empty if they are
    // usable.
    QString problem() const;
    // The effective value of mStartTls: with a password, encryption is required unless the settings say
    // otherwise.
    StartTls effectiveStartTls() const;

    bool operator==(const SmtpSettings&) const = default;
};

} // namespace tarn::vkservice::mail
