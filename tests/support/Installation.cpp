#include "Installation.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <unistd.h>

namespace {

// Short, since the path of a socket has little room.
QString dirTemplate()
{
    return QDir::tempPath() + QStringLiteral("/rkm-XXXXXX");
}

} // namespace

Installation::Installation(const QList<QString>& pPrograms) : mDir(dirTemplate())
{
    const QString tBuild = QStringLiteral(BUILD_DIR);
    for (const char* tDir : {"bin", "etc/vk", "home", "tmp"}) {
        QDir(mDir.path()).mkpath(QString::fromLatin1(tDir));
    }
    QFile::link(tBuild + QStringLiteral("/lib"), path(QStringLiteral("lib")));
    for (const QString& tProgram : pPrograms) {
        addProgram(tBuild + QStringLiteral("/bin/") + tProgram, tProgram);
    }
    writeFile(QStringLiteral("etc/vk/vk.cfg"),
              QStringLiteral("[application]\nlogDir = \"%1/log\"\nlanguage = \"en\"\n"
                             "languages = [\"da\", \"de\"]\nsettingsDir.other = \"settings\"\n"
                             "[data]\nlanguages = [\"de\", \"fr\"]\n[service]\nstateDir = \"%1/state\"\n")
                  .arg(mDir.path())
                  .toUtf8());
    mEnvironment = {
        {"HOME", path(QStringLiteral("home")).toUtf8()},
        {"LC_ALL", "C.UTF-8"},
        {"PATH", "/usr/bin:/bin"},
        {"TMPDIR", path(QStringLiteral("tmp")).toUtf8()},
    };
    for (const char* tName : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TZ", "UBSAN_OPTIONS"}) {
        if (qEnvironmentVariableIsSet(tName)) {
            mEnvironment.insert(tName, qgetenv(tName));
        }
    }
}

QString Installation::path(const QString& pBelow) const
{
    return mDir.filePath(pBelow);
}

QString Installation::socketPath(const QString& pName) const
{
    return path(QStringLiteral("tmp/") + pName);
}

// The programs find their installation from the place of the executable itself, which a symbolic link is not.
void Installation::addProgram(const QString& pSource, const QString& pName)
{
    const QString tTarget = path(QStringLiteral("bin/") + pName);
    if (::link(QFile::encodeName(pSource).constData(), QFile::encodeName(tTarget).constData()) != 0 &&
        !QFile::copy(pSource, tTarget)) {
        qFatal("no program %s", qPrintable(pSource));
    }
}

void Installation::writeFile(const QString& pBelow, const QByteArray& pContent) const
{
    QDir().mkpath(QFileInfo(path(pBelow)).path());
    QFile tFile(path(pBelow));
    if (!tFile.open(QIODevice::WriteOnly) || tFile.write(pContent) != pContent.size()) {
        qFatal("can't write %s", qPrintable(pBelow));
    }
}

QByteArray Installation::readFile(const QString& pBelow) const
{
    QFile tFile(path(pBelow));
    return tFile.open(QIODevice::ReadOnly) ? tFile.readAll() : QByteArray();
}

QByteArray Installation::log() const
{
    return readFile(QStringLiteral("log/rkm.log"));
}

std::unique_ptr<Program> Installation::start(const QList<QByteArray>& pArguments, Program::Console pConsole,
                                             const QString& pProgram) const
{
    return std::make_unique<Program>(path(QStringLiteral("bin/") + pProgram), pArguments, mEnvironment,
                                     pConsole);
}

Program::Result Installation::run(const QList<QByteArray>& pArguments, const QByteArray& pInput) const
{
    const std::unique_ptr<Program> tProgram = start(pArguments);
    if (!pInput.isEmpty()) {
        tProgram->write(pInput);
    }
    return tProgram->wait();
}
