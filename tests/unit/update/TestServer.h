#pragma once

#include "Text.h"

#include <QtCore/QProcess>
#include <QtCore/QTemporaryDir>

// A port of this machine that nobody listens on.
quint16 freePort();
// Waits until a process listens on the port; false after ten seconds.
bool waitForPort(quint16 pPort);

// An nginx that serves a folder over https as "localhost", with a certificate signed by ca.pem in its folder.
class TestServer
{
public:
    explicit TestServer(const QString& pFolder);
    ~TestServer();

    quint16 port() const { return mPort; }
    QString uri(const QString& pBelow = QString()) const;
    QString caFile() const { return mDir.filePath(q("cert.pem")); }
    // Asks for this user and password below "/private/".
    void setUser(const QByteArray& pUser, const QByteArray& pPassword);
    // To be called before start(): adds to the server's configuration.
    void addConfiguration(const QByteArray& pLines) { mMore += pLines; }
    // To be called before start(): files can share a connection.
    void useHttp2() { mProtocol = "http2"; }
    // Starts it and waits until it listens; may be called again after stop().
    bool start(bool pWait = true);
    void stop();
    // "METHOD PATH STATUS USER" of each request so far, with "?range" after PATH for a range request.
    QStringList requests() const;
    void forgetRequests();

private:
    QTemporaryDir mDir;
    QString mFolder;
    quint16 mPort;
    QByteArray mMore;
    QByteArray mProtocol;
    QProcess mProcess;
};

// hostile_server.py, which serves a folder over https as "localhost" and delays its clients.
class HostileServer
{
public:
    explicit HostileServer(const QString& pFolder);
    ~HostileServer();

    QString uri(const QString& pWay) const { return q("https://localhost:%1/%2").arg(mPort).arg(pWay); }
    QString caFile() const { return mDir.filePath(q("cert.pem")); }

private:
    QTemporaryDir mDir;
    quint16 mPort;
    QProcess mProcess;
};

// A tinyproxy that forwards clients with a user and a password to one port.
class TestProxy
{
public:
    explicit TestProxy(quint16 pTo);
    ~TestProxy();

    quint16 port() const { return mPort; }
    // Its log of connections.
    QByteArray log() const;

private:
    QTemporaryDir mDir;
    quint16 mPort;
    QProcess mProcess;
};
