#include "Installation.h"
#include "Files.h"

#include <unistd.h>

// The name is short, because the length of a socket path is limited.
Installation::Installation(const QList<QString>& pPrograms) : mDir(QDir::tempPath() + q("/rkm-XXXXXX"))
{
    const QString tBuild = q(BUILD_DIR);
    for (const char* tDir : {"bin", "etc/vk", "home", "tmp"}) {
        QDir(mDir.path()).mkpath(q(tDir));
    }
    QFile::link(tBuild + q("/lib"), path("lib"));
    for (const QString& tProgram : pPrograms) {
        addProgram(tBuild + q("/bin/") + tProgram, tProgram);
    }
    writeFile("etc/vk/vk.cfg", q("[application]\nlogDir = \"%1/log\"\nlanguage = \"en\"\n"
                                 "languages = [\"da\", \"de\"]\nsettingsDir.other = \"settings\"\n"
                                 "[data]\nlanguages = [\"de\", \"fr\"]\n[service]\nstateDir = \"%1/state\"\n"
                                 "socketName = \"vkservice\"\n")
                                   .arg(mDir.path())
                                   .toUtf8());
    mEnvironment = {
        {"HOME", path("home").toUtf8()},
        {"LC_ALL", "C.UTF-8"},
        {"PATH", "/usr/bin:/bin"},
        {"TMPDIR", path("tmp").toUtf8()},
    };
    for (const char* tName : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TZ", "UBSAN_OPTIONS"}) {
        if (qEnvironmentVariableIsSet(tName)) {
            mEnvironment.insert(tName, qgetenv(tName));
        }
    }
}

QString Installation::path(const Text& pBelow) const
{
    return mDir.filePath(pBelow);
}

QString Installation::socketPath(const Text& pName) const
{
    return path(q("tmp/") + pName);
}

// The programs find their installation by the path of the executable, so a symbolic link would not do.
void Installation::addProgram(const Text& pSource, const Text& pName)
{
    const QString tTarget = path(q("bin/") + pName);
    if (::link(QFile::encodeName(pSource).constData(), QFile::encodeName(tTarget).constData()) != 0 &&
        !QFile::copy(pSource, tTarget)) {
        qFatal("no program %s", qPrintable(pSource));
    }
}

void Installation::writeFile(const Text& pBelow, const QByteArray& pContent) const
{
    ::writeFile(path(pBelow), pContent);
}

QByteArray Installation::readFile(const Text& pBelow) const
{
    return ::readFile(path(pBelow));
}

QByteArray Installation::log() const
{
    return readFile("log/rkm.log");
}

std::unique_ptr<Program> Installation::start(const QList<QByteArray>& pArguments, Program::Console pConsole,
                                             const Text& pProgram) const
{
    return std::make_unique<Program>(path(q("bin/") + pProgram), pArguments, mEnvironment, pConsole);
}

void Installation::publish(QList<QByteArray> pArguments) const
{
    pArguments.insert(1, path("repository").toUtf8());
    const Program::Result tResult = start(pArguments, Program::Console::Pipes, "vkpublish")->wait();
    if (tResult.mStatus != 0) {
        qFatal("vkpublish %s: %s", pArguments[0].constData(), tResult.mErr.constData());
    }
}

Program::Result Installation::run(const QList<QByteArray>& pArguments, const QByteArray& pInput) const
{
    const std::unique_ptr<Program> tProgram = start(pArguments);
    if (!pInput.isEmpty()) {
        tProgram->write(pInput);
    }
    return tProgram->wait();
}
