#pragma once

#include "Installation.h"

#include <QtCore/QByteArray>
#include <QtCore/QList>
#include <QtCore/QMap>
#include <QtCore/QString>

#include <memory>

// A machine with rkm and the real service, and a publisher's repository that it updates from.
class Machine
{
public:
    // Where the service keeps its state and where it installs, below the machine's folder.
    explicit Machine(const QString& pStateDir = QStringLiteral("state"),
                     const QString& pInstallDir = QStringLiteral("installed"));

    Installation& installation() { return mInstallation; }
    QString path(const QString& pBelow) const { return mInstallation.path(pBelow); }

    // Files by their path in the package.
    using Files = QMap<QString, QByteArray>;
    // A package's files that are told by its name and version, pCount of them.
    static Files files(const QString& pName, const QString& pVersion, int pCount = 3);
    void add(const QString& pName, const QString& pVersion, const QList<QByteArray>& pOptions = {},
             const Files& pFiles = {});
    void publish(const QList<QByteArray>& pOptions = {});

    Program::Result rkm(const QList<QByteArray>& pArguments, const QByteArray& pInput = {}) const;
    // A service in the foreground; ready when this returns.
    std::unique_ptr<Program> startService() const;

    // The package's version as it is installed now, read from its files, which have to be whole: an empty
    // text where the package is missing, "damaged: ..." where a file is not as it was published.
    QString installedVersion(const QString& pName) const;
    // What update writes behind the last state of its progress line.
    static QByteArray afterProgress(const QByteArray& pOutput);

private:
    Installation mInstallation;
    QString mInstallDir;
};
