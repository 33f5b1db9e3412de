#include "TestServer.h"

#include "TestRepository.h"

#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QThread>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

sockaddr_in loopback(quint16 pPort)
{
    sockaddr_in tAddress = {};
    tAddress.sin_family = AF_INET;
    tAddress.sin_port = htons(pPort);
    tAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return tAddress;
}

QString str(const char* pText)
{
    return QString::fromUtf8(pText);
}

} // namespace

quint16 freePort()
{
    const int tSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in tAddress = loopback(0);
    socklen_t tLength = sizeof tAddress;
    ::bind(tSocket, reinterpret_cast<sockaddr*>(&tAddress), tLength);
    ::getsockname(tSocket, reinterpret_cast<sockaddr*>(&tAddress), &tLength);
    ::close(tSocket);
    return ntohs(tAddress.sin_port);
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
    QProcess tMaker; // its chatter goes nowhere
    tMaker.start(str("openssl"),
                 {str("req"), str("-x509"), str("-newkey"), str("ec"), str("-pkeyopt"),
                  str("ec_paramgen_curve:prime256v1"), str("-nodes"), str("-days"), str("2"), str("-subj"),
                  str("/CN=localhost"), str("-addext"), str("subjectAltName=DNS:localhost"), str("-keyout"),
                  mDir.filePath(str("key.pem")), str("-out"), caFile()});
    tMaker.waitForFinished();
    mProcess.setProcessChannelMode(QProcess::ForwardedErrorChannel);
}

TestServer::~TestServer()
{
    stop();
}

QString TestServer::uri(const QString& pBelow) const
{
    return QStringLiteral("https://localhost:%1%2").arg(mPort).arg(pBelow);
}

void TestServer::setUser(const QByteArray& pUser, const QByteArray& pPassword)
{
    writeFile(mDir.filePath(str("users")), pUser + ":{PLAIN}" + pPassword + "\n");
    addConfiguration("location /private/ { alias " + mFolder.toUtf8() +
                     "/; auth_basic x; auth_basic_user_file " + mDir.filePath(str("users")).toUtf8() +
                     "; }\n");
}

bool TestServer::start(bool pWait)
{
    const QByteArray tDir = mDir.path().toUtf8();
    QByteArray tTemporary;
    for (const char* tKind : {"client_body", "proxy", "fastcgi", "uwsgi", "scgi"}) {
        tTemporary += QByteArray(tKind) + "_temp_path " + tDir + "/" + tKind + ";\n";
    }
    writeFile(mDir.filePath(str("nginx.conf")),
              QByteArray(::geteuid() == 0 ? "user root;\n" : "") +
                  "daemon off; master_process off; error_log stderr crit; pid " + tDir +
                  "/pid;\n"
                  "events { worker_connections 64; }\n"
                  "http {\n" +
                  tTemporary +
                  "map $http_range $part { default '?range'; '' ''; }\n"
                  "log_format short '$request_method $uri$part $status $remote_user';\n"
                  "access_log " +
                  tDir +
                  "/access.log short;\n"
                  "server { listen 127.0.0.1:" +
                  QByteArray::number(mPort) +
                  " ssl; server_name localhost;\n"
                  "ssl_certificate " +
                  tDir + "/cert.pem; ssl_certificate_key " + tDir +
                  "/key.pem;\n"
                  "root " +
                  mFolder.toUtf8() + ";\n" + mMore + "} }\n");
    mProcess.start(str("/usr/sbin/nginx"),
                   {str("-p"), mDir.path(), str("-c"), mDir.filePath(str("nginx.conf"))});
    return mProcess.waitForStarted() && (!pWait || waitForPort(mPort));
}

void TestServer::stop()
{
    mProcess.terminate();
    mProcess.waitForFinished();
}

// The server writes the line of a request behind its answer, and nothing tells when: the log counts as whole
// when it has been quiet for a moment.
QStringList TestServer::requests() const
{
    const QString tLog = mDir.filePath(str("access.log"));
    QByteArray tLines;
    for (int tQuiet = 0, tTries = 0; tQuiet < 10 && tTries < 200; ++tTries) {
        QThread::msleep(20);
        const QByteArray tNow = readFile(tLog);
        tQuiet = tNow == tLines ? tQuiet + 1 : 0;
        tLines = tNow;
    }
    return QString::fromUtf8(tLines).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}

void TestServer::forgetRequests()
{
    QFile(mDir.filePath(str("access.log"))).resize(0);
}

TestProxy::TestProxy(quint16 pTo) : mPort(freePort())
{
    writeFile(mDir.filePath(str("conf")),
              "Port " + QByteArray::number(mPort) +
                  "\nListen 127.0.0.1\nTimeout 30\nMaxClients 20\nLogLevel Connect\n"
                  "LogFile \"" +
                  mDir.filePath(str("log")).toUtf8() +
                  "\"\n"
                  "BasicAuth proxyuser proxypass\n"
                  "ConnectPort " +
                  QByteArray::number(pTo) + "\n");
    mProcess.start(str("/usr/bin/tinyproxy"), {str("-d"), str("-c"), mDir.filePath(str("conf"))});
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
    return readFile(mDir.filePath(str("log")));
}
