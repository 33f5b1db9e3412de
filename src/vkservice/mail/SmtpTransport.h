#pragma once

#include <QtCore/QString>

namespace tarn::vkservice::mail {

struct Mail;
struct SmtpSettings;

struct SendResult
{
    enum class Outcome
    {
        Sent,         // the mail server has accepted the mail
        Refused,      // the mail server permanently rejects this mail to this address
        Deferred,     // the mail server rejects this mail to this address for now, and may accept others
        ServerFailed, // not caused by the mail: the server, the connection or the settings failed
        Canceled,
    };

    Outcome mOutcome = Outcome::ServerFailed;
    QString mText; // why, for the log; empty when sent
};

// The connection to the mail server.
class SmtpTransport
{
public:
    virtual ~SmtpTransport() = default;

    // Blocks until the mail was sent or has failed. Called on one thread at a time.
    virtual SendResult send(const Mail& pMail, const SmtpSettings& pSettings) = 0;
    // Cancels a running send() soon, and all later ones at once. Thread-safe.
    virtual void cancel() = 0;
};

} // namespace tarn::vkservice::mail
