#include "SmtpSink.h"
#include "Files.h"
#include "Loopback.h"

#include <QtCore/QCoreApplication>
#include <QtCore/QElapsedTimer>
#include <QtCore/QJsonDocument>
#include <QtCore/QThread>

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>

namespace tarn::vkservice::mail {

SmtpSink::SmtpSink() : mSocket(loopbackSocket(&mPort)) {}

SmtpSink::~SmtpSink()
{
    stop();
    ::close(mSocket);
}

void SmtpSink::start(const QStringList& pOptions)
{
    // Listens before the server runs, so that early connections wait for it.
    if (::listen(mSocket, 64) != 0) {
        qFatal("the mail server's port can't be listened on");
    }
    mProcess.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    // The server inherits the socket and must not survive a test that crashes.
    mProcess.setChildProcessModifier([this] {
        ::fcntl(mSocket, F_SETFD, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    });
    mProcess.start(q(SINK_PYTHON),
                   QStringList{q(SINK_SCRIPT), q("--fd=%1").arg(mSocket), q("--out=%1").arg(mDir.path())} +
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
    const QString tKey = mDir.filePath(q("key.pem"));
    if (!QFile::exists(tKey)) {
        makeCertificate(certificate(), tKey);
    }
    return {q("--certificate=%1").arg(certificate()), q("--key=%1").arg(tKey)};
}

void SmtpSink::startSecure(const QStringList& pOptions)
{
    start(tlsOptions() + QStringList{q("--login=user:secret")} + pOptions);
}

QString SmtpSink::url(const QString& pScheme) const
{
    return q("%1://localhost:%2").arg(pScheme).arg(mPort);
}

SmtpSettings SmtpSink::settings() const
{
    SmtpSettings tSettings;
    tSettings.mUrl = url(q("smtp"));
    tSettings.mUser = q("user");
    tSettings.mPassword = q("secret");
    tSettings.mSender = q("Updates <updates@example.org>");
    tSettings.mCaFile = certificate();
    return tSettings;
}

QList<SmtpSink::Received> SmtpSink::received() const
{
    QList<Received> tAll;
    const QDir tDir(mDir.path());
    for (const QString& tName : tDir.entryList({q("*.json")}, QDir::Files, QDir::Name)) {
        QString tMessage = tName;
        tMessage.replace(q(".json"), q(".eml"));
        tAll.append({readFile(tDir.filePath(tMessage)),
                     QJsonDocument::fromJson(readFile(tDir.filePath(tName))).object()});
    }
    return tAll;
}

void SmtpSink::waitForMail() const
{
    QElapsedTimer tTimer;
    for (tTimer.start(); received().isEmpty(); QThread::msleep(5)) {
        QCoreApplication::processEvents();
        if (tTimer.elapsed() > 60000) {
            qFatal("no mail has arrived");
        }
    }
}

QByteArray SmtpSink::logins() const
{
    return readFile(mDir.filePath(q("logins")));
}

QString decoded(const QByteArray& pMessage, const QString& pPart)
{
    static const QString sProgram =
        q("import sys, email, email.policy\n"
          "message = email.message_from_binary_file(sys.stdin.buffer, policy=email.policy.default)\n"
          "part = sys.argv[1]\n"
          "if part in ('text', 'html'):\n"
          "    out = message.get_body((dict(text='plain', html='html')[part],)).get_content()\n"
          "else:\n"
          "    out = message[part] or ''\n"
          "sys.stdout.buffer.write(str(out).encode())\n");
    QProcess tPython;
    tPython.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    tPython.start(q(SINK_PYTHON), {q("-c"), sProgram, pPart});
    tPython.write(pMessage);
    tPython.closeWriteChannel();
    tPython.waitForFinished();
    return q(tPython.readAllStandardOutput());
}

} // namespace tarn::vkservice::mail
