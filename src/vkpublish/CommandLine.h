#pragma once

#include "keys/FolderLock.h"

#include <QtCore/QCommandLineParser>
#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <memory>
#include <optional>

namespace tarn::tuf {
class Fetcher;
}

namespace tarn::vkpublish {

// Exit statuses.
enum Status : int
{
    StatusDone = 0,
    StatusFailed = 1,
    StatusUsage = 2,
    StatusUnvouched = 3, // of verify: no errors, but no trusted root to compare with
    StatusExpiring = 4,  // of verify --warn-days: valid, but there is a warning
};

// The options and arguments of one command, with its help.
class CommandLine
{
public:
    CommandLine(const QString& pCommand, const QString& pDescription);

    // Arguments are parsed in the order of these calls; all are required but for optional ones.
    void addArgument(const QString& pName, const QString& pDescription);
    // After all others.
    void addOptionalArgument(const QString& pName, const QString& pDescription);
    // An option with a value has a pValueName.
    void addOption(const QString& pName, const QString& pDescription, const QString& pValueName = QString(),
                   const QString& pDefault = QString());
    // --keys, and the argument DIR before it.
    void addRepository();
    // --no-wait, for commands that lock the key folder, and perhaps the repository.
    void addNoWait();
    // --trust-clock, for commands that are run again if the clock was refused
    void addTrustClock();
    // --json
    void addJson();

    // No value: continue. Else the exit status; help or error were already written.
    std::optional<int> parse(const QStringList& pArguments);

    QString argument(int pIndex) const; // null for an optional one that was not given
    bool isSet(const char* pName) const;
    QString value(const char* pName) const;
    QStringList values(const char* pName) const;
    QString repository() const; // absolute
    QString keys() const;       // absolute; by default next to the repository

    Patience patience() const;

    // An integer from pLeast to pMost; no value, after an error message, for any other text.
    std::optional<int> number(const char* pName, int pLeast, int pMost) const;
    std::optional<QDateTime> date(const char* pName) const;
    // The metadata of the repository that an option names, with the certificates of --ca-file. False, after
    // an error message, for any other text.
    bool openPlace(const char* pName, std::unique_ptr<tuf::Fetcher>* pTo) const;

private:
    QString help() const;

    QCommandLineParser mParser;
    QString mCommand;
    QStringList mArguments;  // names
    qsizetype mOptional = 0; // of them
};

// Writes one line to standard output or standard error.
void say(const QString& pLine);
void complain(const QString& pLine);

} // namespace tarn::vkpublish
