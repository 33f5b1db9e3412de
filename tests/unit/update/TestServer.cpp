#include "TestServer.h"
#include "Loopback.h"

#include "PackageRepository.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QThread>

#include <unistd.h>

quint16 freePort()
{
    quint16 tPort = 0;
    ::close(loopbackSocket(&tPort));
    return tPort;
}

bool waitForPort(quint16 pPort)
{
    QElapsedTimer tTimer;
    for (tTimer.start(); tTimer.elapsed() < 10000; QThread::msleep(10)) {
        const int tSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in tAddress = loopback(pPort);
        const int tResult = ::connect(tSocket, reinterpret_cast<const sockaddr*>(&tAddress), sizeof tAddress);
        ::close(tSocket);
        if (tResult == 0) {
            return true;
        }
    }
    return false;
}

TestServer::TestServer(const QString& pFolder) : mFolder(pFolder), mPort(freePort())
{
    makeCertificate(caFile(), mDir.filePath(q("key.pem")));
    mProcess.setProcessChannelMode(QProcess::ForwardedErrorChannel);
}

TestServer::~TestServer()
{
    stop();
}

QString TestServer::uri(const QString& pBelow) const
{
    return q("https://localhost:%1%2").arg(mPort).arg(pBelow);
}

void TestServer::setUser(const QByteArray& pUser, const QByteArray& pPassword)
{
    writeFile(mDir.filePath(q("users")), pUser + ":{PLAIN}" + pPassword + "\n");
    addConfiguration("location /private/ { alias " + mFolder.toUtf8() +
                     "/; auth_basic x; auth_basic_user_file " + mDir.filePath(q("users")).toUtf8() + "; }\n");
}

bool TestServer::start(bool pWait)
{
    const QByteArray tDir = mDir.path().toUtf8();
    QByteArray tTemporary;
    for (const char* tKind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        tTemporary += QByteArray(tKind) + "_temp_path " + tDir + "/" + tKind + ";\n";
    }
    const QByteArray tConfiguration =
        "daemon off; master_process off; error_log stderr crit; pid DIR/pid;\n"
        "events { worker_connections 64; }\nhttp {\nTEMPORARY"
        "map $http_range $part { default '?range'; '' ''; }\n"
        "log_format short '$request_method $uri$part $status $remote_user';\naccess_log DIR/access.log "
        "short;\n"
        "server { listen 127.0.0.1:PORT ssl PROTOCOL; server_name localhost; root FOLDER;\n"
        "ssl_certificate DIR/cert.pem; ssl_certificate_key DIR/key.pem;\nMORE} }\n";
    writeFile(mDir.filePath(q("nginx.conf")),
              (::geteuid() == 0 ? "user root;\n" : "") + QByteArray(tConfiguration)
                                                             .replace("TEMPORARY", tTemporary)
                                                             .replace("PORT", QByteArray::number(mPort))
                                                             .replace("PROTOCOL", mProtocol)
                                                             .replace("DIR", tDir)
                                                             .replace("FOLDER", mFolder.toUtf8())
                                                             .replace("MORE", mMore));
    mProcess.start(q("/usr/sbin/nginx"), {q("-p"), mDir.path(), q("-c"), mDir.filePath(q("nginx.conf"))});
    return mProcess.waitForStarted() && (!pWait || waitForPort(mPort));
}

void TestServer::stop()
{
    mProcess.terminate();
    mProcess.waitForFinished();
}

// The server logs a request after its answer, at an unknown time: the log counts as complete when nothing was
// added for a moment.
QStringList TestServer::requests() const
{
    const QString tLog = mDir.filePath(q("access.log"));
    QByteArray tLines;
    for (int tQuiet = 0, tTries = 0; tQuiet < 10 && tTries < 200; ++tTries) {
        QThread::msleep(20);
        const QByteArray tNow = readFile(tLog);
        tQuiet = tNow == tLines ? tQuiet + 1 : 0;
        tLines = tNow;
    }
    return q(tLines).split(u'\n', Qt::SkipEmptyParts);
}

void TestServer::forgetRequests()
{
    QFile(mDir.filePath(q("access.log"))).resize(0);
}

HostileServer::HostileServer(const QString& pFolder) : mPort(freePort())
{
    const QString tKey = mDir.filePath(q("key.pem"));
    makeCertificate(caFile(), tKey);
    mProcess.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    mProcess.start(q("/usr/bin/python3"),
                   {q(HOSTILE_SERVER), pFolder, caFile(), tKey, QString::number(mPort)});
    waitForPort(mPort);
}

HostileServer::~HostileServer()
{
    mProcess.kill();
    mProcess.waitForFinished();
}

TestProxy::TestProxy(quint16 pTo) : mPort(freePort())
{
    writeFile(mDir.filePath(q("conf")),
              "Port " + QByteArray::number(mPort) +
                  "\nListen 127.0.0.1\nTimeout 30\nMaxClients 20\nLogLevel Connect\n"
                  "LogFile \"" +
                  mDir.filePath(q("log")).toUtf8() +
                  "\"\n"
                  "BasicAuth proxyuser proxypass\n"
                  "ConnectPort " +
                  QByteArray::number(pTo) + "\n");
    mProcess.start(q("/usr/bin/tinyproxy"), {q("-d"), q("-c"), mDir.filePath(q("conf"))});
    mProcess.waitForStarted();
    waitForPort(mPort);
}

TestProxy::~TestProxy()
{
    mProcess.terminate();
    mProcess.waitForFinished();
}

QByteArray TestProxy::log() const
{
    return readFile(mDir.filePath(q("log")));
}
