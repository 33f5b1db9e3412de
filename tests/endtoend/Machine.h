#pragma once

#include "Installation.h"

// A machine with rkm and the real service, and a publisher's repository.
class Machine
{
public:
    // The state and install folders, below the machine's folder.
    explicit Machine(const QString& pStateDir = q("state"), const QString& pInstallDir = q("installed"));

    Installation& installation() { return mInstallation; }
    QString path(const Text& pBelow) const { return mInstallation.path(pBelow); }

    // Files by their path in the package.
    using Files = QMap<QString, QByteArray>;
    // pCount files of a package, with contents made from its name and version.
    static Files files(const Text& pName, const Text& pVersion, int pCount = 3);
    void add(const Text& pName, const Text& pVersion, const QList<QByteArray>& pOptions = {},
             const Files& pFiles = {});
    void publish(const QList<QByteArray>& pOptions = {});

    Program::Result rkm(const QList<QByteArray>& pArguments, const QByteArray& pInput = {}) const;
    // Starts a service in the foreground; it is ready when this returns.
    std::unique_ptr<Program> startService() const;

    // The installed version of the package, read from all of its files: empty if the package is missing,
    // "damaged: ..." if a file differs from the published one.
    QString installedVersion(const Text& pName) const;
    // The output of update after the last state of its progress line.
    static QByteArray afterProgress(const QByteArray& pOutput);

private:
    Installation mInstallation;
    QString mInstallDir;
};
