#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::mail {

// The mail server, as the configuration has it. The variable of each field stands beside it.
struct SmtpSettings
{
    enum class StartTls
    {
        Required,
        IfOffered, // "ifOffered"
        Never,
    };

    QString mUrl; // mail.url: smtp://HOST[:PORT] or smtps://HOST[:PORT]; empty: no mails
    StartTls mStartTls = StartTls::Required; // mail.startTls; of no meaning with smtps
    QString mUser;                           // mail.user; empty: no login
    QString mPassword;                       // mail.password
    QString mSender;                         // mail.sender: "ADDRESS" or "NAME <ADDRESS>"
    QString mCaFile;                         // mail.caFile; empty: the system's certificates
    bool mAllowPlaintext = false;            // mail.allowPlaintext: the password may travel unencrypted
    int mTimeoutSeconds = 60;                // mail.timeout: for each answer of the server

    bool isOn() const { return !mUrl.isEmpty(); }
    // Why no mail can be sent with these, for the administrator; empty if nothing speaks against it.
    QString problem() const;
    // What mStartTls comes to: a password makes encryption a must unless the settings say otherwise.
    StartTls effectiveStartTls() const;

    bool operator==(const SmtpSettings&) const = default;
};

} // namespace tarn::vkservice::mail
