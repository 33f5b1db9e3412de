#pragma once

#include "Program.h"
#include "Text.h"

#include <QtCore/QTemporaryDir>

#include <memory>

// A private installation of the built programs, with its own configuration, log, state, home and socket
// folder: programs in it do not touch the machine, even as root. It has no translations.
class Installation
{
public:
    // pPrograms: names in the build's bin folder, each copied.
    explicit Installation(const QList<QString>& pPrograms = {q("rkm")});

    QString path(const Text& pBelow) const;
    // The path of a socket with a relative name; by default the configured one.
    QString socketPath(const Text& pName = "vkservice") const;
    void addProgram(const Text& pSource, const Text& pName);
    void writeFile(const Text& pBelow, const QByteArray& pContent) const;
    QByteArray readFile(const Text& pBelow) const;
    // The log lines of all rkm runs.
    QByteArray log() const;
    Program::Environment& environment() { return mEnvironment; }

    std::unique_ptr<Program> start(const QList<QByteArray>& pArguments,
                                   Program::Console pConsole = Program::Console::Pipes,
                                   const Text& pProgram = "rkm") const;
    // Runs a command of vkpublish on the folder "repository" with these arguments; it has to succeed.
    void publish(QList<QByteArray> pArguments) const;
    Program::Result run(const QList<QByteArray>& pArguments, const QByteArray& pInput = {}) const;

private:
    QTemporaryDir mDir;
    Program::Environment mEnvironment;
};
