#pragma once

#include "Installation.h"

// A machine with rkm and the real service, and a publisher's repository that it updates from.
class Machine
{
public:
    // Where the service keeps its state and where it installs, below the machine's folder.
    explicit Machine(const QString& pStateDir = q("state"), const QString& pInstallDir = q("installed"));

    Installation& installation() { return mInstallation; }
    QString path(const Text& pBelow) const { return mInstallation.path(pBelow); }

    // Files by their path in the package.
    using Files = QMap<QString, QByteArray>;
    // A package's files that are told by its name and version, pCount of them.
    static Files files(const Text& pName, const Text& pVersion, int pCount = 3);
    void add(const Text& pName, const Text& pVersion, const QList<QByteArray>& pOptions = {},
             const Files& pFiles = {});
    void publish(const QList<QByteArray>& pOptions = {});

    Program::Result rkm(const QList<QByteArray>& pArguments, const QByteArray& pInput = {}) const;
    // A service in the foreground; ready when this returns.
    std::unique_ptr<Program> startService() const;

    // The package's version as it is installed now, read from its files, which have to be whole: an empty
    // text where the package is missing, "damaged: ..." where a file is not as it was published.
    QString installedVersion(const Text& pName) const;
    // What update writes behind the last state of its progress line.
    static QByteArray afterProgress(const QByteArray& pOutput);

private:
    Installation mInstallation;
    QString mInstallDir;
};
