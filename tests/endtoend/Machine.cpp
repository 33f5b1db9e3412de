#include "Machine.h"
#include "RawPeer.h"
#include "Test.h"

#include <QtCore/QDirIterator>

Machine::Machine(const QString& pStateDir, const QString& pInstallDir)
    : mInstallation({q("rkm"), q("vkctl"), q("vkservice"), q("vkpublish")}), mInstallDir(pInstallDir)
{
    mInstallation.writeFile(
        "etc/vk/vk.cfg",
        q("[application]\nlogDir = \"%1/log\"\nlanguage = \"en\"\nsettingsDir.other = \"%1/settings\"\n"
          "languages = [\"de\", \"en\"]\n[data]\nlanguages = [\"de\", \"en\"]\n"
          "[service]\nsocketName = \"vkservice\"\nstateDir = \"%1/%2\"\ninstall.dir = \"%1/%3\"\n"
          "defaultServer = \"file://%1/repository\"\n")
            .arg(QDir::cleanPath(path("")), pStateDir, pInstallDir)
            .toUtf8());
    mInstallation.publish({"init", "--no-passphrase"});
    mInstallation.writeFile("etc/vk/root.json", mInstallation.readFile("repository/metadata/1.root.json"));
}

Machine::Files Machine::files(const Text& pName, const Text& pVersion, int pCount)
{
    Files tFiles{{q("version"), pVersion.toUtf8()}};
    for (int i = 0; i < pCount; ++i) {
        tFiles.insert(q("share/%1.txt").arg(i),
                      q("%1 %2 %3\n").arg(pName, pVersion).arg(i).repeated(2000).toUtf8());
    }
    return tFiles;
}

void Machine::add(const Text& pName, const Text& pVersion, const QList<QByteArray>& pOptions,
                  const Files& pFiles)
{
    const QString tFolder = q("sources/%1-%2").arg(pName, pVersion);
    const Files tFiles = pFiles.isEmpty() ? files(pName, pVersion) : pFiles;
    for (auto tFile = tFiles.cbegin(); tFile != tFiles.cend(); ++tFile) {
        mInstallation.writeFile(tFolder + u'/' + tFile.key(), tFile.value());
    }
    mInstallation.publish(QList<QByteArray>{"add", path(tFolder).toUtf8(), "--name", pName.toUtf8(),
                                            "--version", pVersion.toUtf8()} +
                          pOptions);
}

void Machine::publish(const QList<QByteArray>& pOptions)
{
    mInstallation.publish(QList<QByteArray>{"publish"} + pOptions);
}

Program::Result Machine::rkm(const QList<QByteArray>& pArguments, const QByteArray& pInput) const
{
    return mInstallation.run(pArguments, pInput);
}

std::unique_ptr<Program> Machine::startService() const
{
    auto tService = mInstallation.start({"-e", "-worker"}, Program::Console::Pipes, q("vkservice"));
    EXPECT_TRUE(RawPeer(mInstallation.socketPath()).isConnected()) << "the service does not listen";
    return tService;
}

QString Machine::installedVersion(const Text& pName) const
{
    const QString tPackage = path(mInstallDir + q("/current/") + pName);
    if (!QDir(tPackage).exists()) {
        return QString();
    }
    const QString tVersion = q(readFile(tPackage + q("/version")));
    const QDir tPublished(path(q("sources/%1-%2").arg(pName, tVersion)));
    int tCount = 0;
    QDirIterator tFiles(tPublished.path(), QDir::Files, QDirIterator::Subdirectories);
    while (tFiles.hasNext()) {
        const QString tOriginal = tFiles.next();
        const QString tInstalled = tPackage + u'/' + tPublished.relativeFilePath(tOriginal);
        if (!QFile::exists(tInstalled) || readFile(tOriginal) != readFile(tInstalled)) {
            return q("damaged: %1").arg(tInstalled);
        }
        ++tCount;
    }
    return tCount > 0 ? tVersion : q("damaged: unknown version %1").arg(tVersion);
}

QByteArray Machine::afterProgress(const QByteArray& pOutput)
{
    const QByteArray tClearLine("\x1b[1G\x1b[K");
    const qsizetype tLast = pOutput.lastIndexOf(tClearLine);
    return tLast < 0 ? pOutput : pOutput.mid(tLast + tClearLine.size());
}
