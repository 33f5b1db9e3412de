#include "Machine.h"

#include <gtest/gtest.h>

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QElapsedTimer>
#include <QtCore/QFile>
#include <QtCore/QThread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

bool isListening(const QString& pSocket)
{
    sockaddr_un tAddress{};
    tAddress.sun_family = AF_UNIX;
    qstrncpy(tAddress.sun_path, QFile::encodeName(pSocket).constData(), sizeof tAddress.sun_path);
    const int tFd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool tAnswers = ::connect(tFd, reinterpret_cast<sockaddr*>(&tAddress), sizeof tAddress) == 0;
    ::close(tFd);
    return tAnswers;
}

void mustSucceed(const Program::Result& pResult)
{
    ASSERT_EQ(pResult.mStatus, 0) << pResult.mOut.toStdString() << pResult.mErr.toStdString();
}

} // namespace

Machine::Machine(const QString& pStateDir, const QString& pInstallDir)
    : mInstallation({QStringLiteral("rkm"), QStringLiteral("vkservice"), QStringLiteral("vkpublish")}),
      mInstallDir(pInstallDir)
{
    const QString tRoot = path(QString());
    mInstallation.writeFile(
        QStringLiteral("etc/vk/vk.cfg"),
        QStringLiteral(
            "[application]\nlogDir = \"%1log\"\nlanguage = \"en\"\nsettingsDir.other = \"%1settings\"\n"
            "languages = [\"de\", \"en\"]\n[data]\nlanguages = [\"de\", \"en\"]\n"
            "[service]\nstateDir = \"%1%2\"\ninstall.dir = \"%1%3\"\n"
            "defaultServer = \"file://%1repository\"\n")
            .arg(tRoot.endsWith(QLatin1Char('/')) ? tRoot : tRoot + QLatin1Char('/'), pStateDir, pInstallDir)
            .toUtf8());
    mustSucceed(mInstallation
                    .start({"init", path(QStringLiteral("repository")).toUtf8()}, Program::Console::Pipes,
                           QStringLiteral("vkpublish"))
                    ->wait());
    mInstallation.writeFile(QStringLiteral("etc/vk/root.json"),
                            mInstallation.readFile(QStringLiteral("repository/metadata/1.root.json")));
}

Machine::Files Machine::files(const QString& pName, const QString& pVersion, int pCount)
{
    Files tFiles{{QStringLiteral("version"), pVersion.toUtf8()}};
    for (int i = 0; i < pCount; ++i) {
        tFiles.insert(QStringLiteral("share/%1.txt").arg(i),
                      QStringLiteral("%1 %2 %3\n").arg(pName, pVersion).arg(i).repeated(2000).toUtf8());
    }
    return tFiles;
}

void Machine::add(const QString& pName, const QString& pVersion, const QList<QByteArray>& pOptions,
                  const Files& pFiles)
{
    const QString tFolder = QStringLiteral("sources/%1-%2").arg(pName, pVersion);
    const Files tFiles = pFiles.isEmpty() ? files(pName, pVersion) : pFiles;
    for (auto tFile = tFiles.cbegin(); tFile != tFiles.cend(); ++tFile) {
        mInstallation.writeFile(tFolder + QLatin1Char('/') + tFile.key(), tFile.value());
    }
    const QList<QByteArray> tArguments = QList<QByteArray>{"add",
                                                           path(QStringLiteral("repository")).toUtf8(),
                                                           path(tFolder).toUtf8(),
                                                           "--name",
                                                           pName.toUtf8(),
                                                           "--version",
                                                           pVersion.toUtf8()} +
                                         pOptions;
    mustSucceed(
        mInstallation.start(tArguments, Program::Console::Pipes, QStringLiteral("vkpublish"))->wait());
}

void Machine::publish(const QList<QByteArray>& pOptions)
{
    const QList<QByteArray> tArguments =
        QList<QByteArray>{"publish", path(QStringLiteral("repository")).toUtf8()} + pOptions;
    mustSucceed(
        mInstallation.start(tArguments, Program::Console::Pipes, QStringLiteral("vkpublish"))->wait());
}

Program::Result Machine::rkm(const QList<QByteArray>& pArguments, const QByteArray& pInput) const
{
    return mInstallation.run(pArguments, pInput);
}

std::unique_ptr<Program> Machine::startService() const
{
    auto tService =
        mInstallation.start({"-e", "-worker"}, Program::Console::Pipes, QStringLiteral("vkservice"));
    QElapsedTimer tTimer;
    tTimer.start();
    while (!isListening(mInstallation.socketPath())) {
        if (tTimer.hasExpired(20000)) {
            ADD_FAILURE() << "the service does not listen";
            break;
        }
        QThread::msleep(5); // nothing tells that a socket has begun to listen
    }
    return tService;
}

QString Machine::installedVersion(const QString& pName) const
{
    const QString tPackage = path(mInstallDir + QStringLiteral("/current/") + pName);
    if (!QDir(tPackage).exists()) {
        return QString();
    }
    QFile tFile(tPackage + QStringLiteral("/version"));
    const QString tVersion =
        tFile.open(QIODevice::ReadOnly) ? QString::fromUtf8(tFile.readAll()) : QStringLiteral("none");
    const QDir tPublished(path(QStringLiteral("sources/%1-%2").arg(pName, tVersion)));
    int tCount = 0;
    QDirIterator tFiles(tPublished.path(), QDir::Files, QDirIterator::Subdirectories);
    while (tFiles.hasNext()) {
        QFile tOriginal(tFiles.next());
        const QString tBelow = tPublished.relativeFilePath(tOriginal.fileName());
        QFile tInstalled(tPackage + QLatin1Char('/') + tBelow);
        if (!tOriginal.open(QIODevice::ReadOnly) || !tInstalled.open(QIODevice::ReadOnly) ||
            tOriginal.readAll() != tInstalled.readAll()) {
            return QStringLiteral("damaged: %1").arg(tInstalled.fileName());
        }
        ++tCount;
    }
    return tCount > 0 ? tVersion : QStringLiteral("damaged: unknown version %1").arg(tVersion);
}

QByteArray Machine::afterProgress(const QByteArray& pOutput)
{
    const QByteArray tClearLine("\x1b[1G\x1b[K");
    const qsizetype tLast = pOutput.lastIndexOf(tClearLine);
    return tLast < 0 ? pOutput : pOutput.mid(tLast + tClearLine.size());
}
