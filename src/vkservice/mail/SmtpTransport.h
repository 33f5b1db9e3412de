#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::mail {

struct Mail;
struct SmtpSettings;

struct SendResult
{
    enum class Outcome
    {
        Sent,         // the mail server has taken the mail over
        Refused,      // the mail server will never take this mail to this address
        Deferred,     // the mail server does not take this mail to this address now, and may take others
        ServerFailed, // nothing is wrong with the mail: the server, the way to it or the settings are
        Canceled,
    };

    Outcome mOutcome = Outcome::ServerFailed;
    QString mText; // why, for the log; empty when sent
};

// The way to the mail server.
class SmtpTransport
{
public:
    virtual ~SmtpTransport() = default;

    // Blocks until the mail has gone or failed. Called on one thread at a time.
    virtual SendResult send(const Mail& pMail, const SmtpSettings& pSettings) = 0;
    // Ends a send() under way soon, and all later ones at once. For any thread.
    virtual void cancel() = 0;
};

} // namespace tarn::vkservice::mail
