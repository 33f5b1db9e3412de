#include "SmtpSink.h"

#include <QtCore/QDir>
#include <QtCore/QEventLoop>
#include <QtCore/QFile>
#include <QtCore/QFileSystemWatcher>
#include <QtCore/QJsonDocument>
#include <QtCore/QTimer>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>

namespace tarn::vkservice::mail {

namespace {

QByteArray fileBytes(const QString& pPath)
{
    QFile tFile(pPath);
    return tFile.open(QIODevice::ReadOnly) ? tFile.readAll() : QByteArray();
}

} // namespace

SmtpSink::SmtpSink()
{
    mSocket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in tAddress{};
    tAddress.sin_family = AF_INET;
    tAddress.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t tLength = sizeof(tAddress);
    if (::bind(mSocket, reinterpret_cast<sockaddr*>(&tAddress), tLength) != 0 ||
        ::getsockname(mSocket, reinterpret_cast<sockaddr*>(&tAddress), &tLength) != 0) {
        qFatal("no port for the mail server");
    }
    mPort = ntohs(tAddress.sin_port);
}

SmtpSink::~SmtpSink()
{
    stop();
    ::close(mSocket);
}

void SmtpSink::start(const QStringList& pOptions)
{
    // Listening before the server runs: what connects in between waits for it.
    if (::listen(mSocket, 64) != 0) {
        qFatal("the mail server's port can't be listened on");
    }
    mProcess.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // A test that crashes must not leave its server behind.
    mProcess.setChildProcessModifier([] { ::prctl(PR_SET_PDEATHSIG, SIGKILL); });
    mProcess.start(QStringLiteral(SINK_PYTHON),
                   QStringList{QStringLiteral(SINK_SCRIPT), QStringLiteral("--fd=%1").arg(mSocket),
                               QStringLiteral("--out=%1").arg(mDir.path())} +
                       pOptions);
    if (!mProcess.waitForStarted()) {
        qFatal("the mail server can't be started");
    }
}

void SmtpSink::stop()
{
    mProcess.kill();
    mProcess.waitForFinished();
}

QStringList SmtpSink::tlsOptions()
{
    const QString tKey = mDir.filePath(QStringLiteral("key.pem"));
    if (!QFile::exists(tKey)) {
        QProcess tOpenssl;
        tOpenssl.setStandardErrorFile(QProcess::nullDevice());
        tOpenssl.start(QStringLiteral("openssl"),
                       {QStringLiteral("req"), QStringLiteral("-x509"), QStringLiteral("-nodes"),
                        QStringLiteral("-newkey"), QStringLiteral("ec"), QStringLiteral("-pkeyopt"),
                        QStringLiteral("ec_paramgen_curve:P-256"), QStringLiteral("-subj"),
                        QStringLiteral("/CN=localhost"), QStringLiteral("-addext"),
                        QStringLiteral("subjectAltName=DNS:localhost"), QStringLiteral("-days"),
                        QStringLiteral("2"), QStringLiteral("-keyout"), tKey, QStringLiteral("-out"),
                        certificate()});
        if (!tOpenssl.waitForFinished() || tOpenssl.exitCode() != 0) {
            qFatal("no certificate for the mail server");
        }
    }
    return {QStringLiteral("--certificate=%1").arg(certificate()), QStringLiteral("--key=%1").arg(tKey)};
}

void SmtpSink::startSecure(const QStringList& pOptions)
{
    start(tlsOptions() + QStringList{QStringLiteral("--login=user:secret")} + pOptions);
}

QString SmtpSink::url(const QString& pScheme) const
{
    return QStringLiteral("%1://localhost:%2").arg(pScheme).arg(mPort);
}

SmtpSettings SmtpSink::settings() const
{
    SmtpSettings tSettings;
    tSettings.mUrl = url(QStringLiteral("smtp"));
    tSettings.mUser = QStringLiteral("user");
    tSettings.mPassword = QStringLiteral("secret");
    tSettings.mSender = QStringLiteral("Updates <updates@example.org>");
    tSettings.mCaFile = certificate();
    return tSettings;
}

QList<SmtpSink::Received> SmtpSink::received() const
{
    QList<Received> tAll;
    const QDir tDir(mDir.path());
    for (const QString& tName : tDir.entryList({QStringLiteral("*.json")}, QDir::Files, QDir::Name)) {
        QString tMessage = tName;
        tMessage.replace(QLatin1String(".json"), QLatin1String(".eml"));
        tAll.append({fileBytes(tDir.filePath(tMessage)),
                     QJsonDocument::fromJson(fileBytes(tDir.filePath(tName))).object()});
    }
    return tAll;
}

void SmtpSink::waitForMail() const
{
    QEventLoop tLoop;
    QFileSystemWatcher tWatcher({mDir.path()});
    QObject::connect(&tWatcher, &QFileSystemWatcher::directoryChanged, &tLoop, [&] {
        if (!received().isEmpty()) {
            tLoop.quit();
        }
    });
    QTimer::singleShot(60000, &tLoop, [&tLoop] { tLoop.exit(1); });
    if (received().isEmpty() && tLoop.exec() != 0) {
        qFatal("no mail has arrived");
    }
}

QByteArray SmtpSink::logins() const
{
    return fileBytes(mDir.filePath(QStringLiteral("logins")));
}

QString decoded(const QByteArray& pMessage, const QString& pPart)
{
    static const QString sProgram = QStringLiteral(
        "import sys, email, email.policy\n"
        "message = email.message_from_binary_file(sys.stdin.buffer, policy=email.policy.default)\n"
        "part = sys.argv[1]\n"
        "if part in ('text', 'html'):\n"
        "    out = message.get_body((dict(text='plain', html='html')[part],)).get_content()\n"
        "else:\n"
        "    out = message[part] or ''\n"
        "sys.stdout.buffer.write(str(out).encode())\n");
    QProcess tPython;
    tPython.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    tPython.start(QStringLiteral(SINK_PYTHON), {QStringLiteral("-c"), sProgram, pPart});
    tPython.write(pMessage);
    tPython.closeWriteChannel();
    tPython.waitForFinished();
    return QString::fromUtf8(tPython.readAllStandardOutput());
}

} // namespace tarn::vkservice::mail
