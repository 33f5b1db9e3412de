#pragma once

#include "Program.h"

#include <QtCore/QTemporaryDir>

#include <memory>

// An installation of the built programs in a folder of its own, with its own configuration, log, state, home
// and place for sockets: what runs in it touches nothing of the machine, also as root. It has no
// translations.
class Installation
{
public:
    // pPrograms: names in the build's bin folder, each copied.
    explicit Installation(const QList<QString>& pPrograms = {QStringLiteral("rkm")});

    QString path(const QString& pBelow) const;
    // Where a socket of a relative name lies; of the default name if none is given.
    QString socketPath(const QString& pName = QStringLiteral("vkservice")) const;
    void addProgram(const QString& pSource, const QString& pName);
    void writeFile(const QString& pBelow, const QByteArray& pContent) const;
    QByteArray readFile(const QString& pBelow) const;
    // The log lines of all rkm runs.
    QByteArray log() const;
    Program::Environment& environment() { return mEnvironment; }

    std::unique_ptr<Program> start(const QList<QByteArray>& pArguments,
                                   Program::Console pConsole = Program::Console::Pipes,
                                   const QString& pProgram = QStringLiteral("rkm")) const;
    Program::Result run(const QList<QByteArray>& pArguments, const QByteArray& pInput = {}) const;

private:
    QTemporaryDir mDir;
    Program::Environment mEnvironment;
};
