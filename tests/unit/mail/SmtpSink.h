#pragma once

#include "mail/SmtpSettings.h"
#include "Text.h"

#include <QtCore/QJsonObject>
#include <QtCore/QList>
#include <QtCore/QProcess>
#include <QtCore/QStringList>
#include <QtCore/QTemporaryDir>

namespace tarn::vkservice::mail {

// A real mail server on a loopback port, with its own certificate for "localhost".
class SmtpSink
{
public:
    struct Received
    {
        QByteArray mMessage;
        QJsonObject mEnvelope; // from, to, tls, user
    };

    // Reserves the port; connections are refused until start().
    SmtpSink();
    ~SmtpSink();
    SmtpSink(const SmtpSink&) = delete;
    SmtpSink& operator=(const SmtpSink&) = delete;

    void start(const QStringList& pOptions);
    void stop();
    // start() with STARTTLS and the login user:secret required.
    void startSecure(const QStringList& pOptions = {});
    QStringList tlsOptions();

    // With STARTTLS and the login user:secret, checked against the sink's certificate.
    SmtpSettings settings() const;
    QString url(const QString& pScheme) const;
    int port() const { return mPort; }
    QString certificate() const { return mDir.filePath(q("cert.pem")); }

    // Waits until the first mail has arrived.
    void waitForMail() const;
    QList<Received> received() const;
    QByteArray logins() const;

private:
    QTemporaryDir mDir;
    QProcess mProcess;
    quint16 mPort = 0;
    int mSocket;
};

// A part of a received message, decoded by another implementation: "subject", "text", "html", or the name of
// a header.
QString decoded(const QByteArray& pMessage, const QString& pPart);

} // namespace tarn::vkservice::mail
