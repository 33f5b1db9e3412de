#include "CommandLine.h"
#include "commands/Commands.h"

#include <QtCore/QCoreApplication>

#include <sys/stat.h>

#include <array>
#include <clocale>

using namespace Qt::StringLiterals;

namespace {

using namespace tarn::vkpublish;

struct Command
{
    const char* mName;
    const char* mSummary;
    int (*mRun)(const QStringList& pArguments);
};

constexpr std::array sCommands{
    Command{"init", "create the keys and the first root of a new repository", cmdInit},
    Command{"add", "pack a folder as a package", cmdAdd},
    Command{"remove", "withdraw a package", cmdRemove},
    Command{"publish", "publish what was added, and renew the signatures", cmdPublish},
    Command{"refresh", "renew timestamp and snapshot, with their keys alone", cmdRefresh},
    Command{"halt", "stop the spread of a package at once", cmdHalt},
    Command{"list", "show the packages", cmdList},
    Command{"verify", "check a repository as a client would", cmdVerify},
    Command{"mirror", "make a folder a verified copy of a repository", cmdMirror},
    Command{"rotate-key", "give a role a new key", cmdRotateKey},
    Command{"recover", "make a lost record again from the repository", cmdRecover},
    Command{"key", "add, remove and list keys, and set how many must sign", cmdKey},
    Command{"payload", "write what to sign on another machine", cmdPayload},
    Command{"show", "show what a payload or a draft changes", cmdShow},
    Command{"sign", "sign a payload, on a machine that has keys only", cmdSign},
    Command{"add-signature", "take a signature back", cmdAddSignature},
};

QString usage()
{
    QString tText = u"Usage: vkpublish COMMAND [arguments] [options]\n"
                    "Creates, signs and mirrors update repositories.\n\nCommands:\n"_s;
    for (const Command& tCommand : sCommands) {
        tText += u"  %1 %2\n"_s.arg(QLatin1String(tCommand.mName), -13).arg(QLatin1String(tCommand.mSummary));
    }
    tText +=
        u"\n\"vkpublish COMMAND --help\" explains a command. --version shows the version.\n"
        "Exit status: 0 success, 1 failure, 2 invalid usage, 3 valid, but the root is not trusted (verify),\n"
        "4 valid, but expires soon (verify --warn-days)."_s;
    return tText;
}

int run(const QStringList& pArguments)
{
    const QString tName = pArguments.value(0);
    if (tName == "--help"_L1 || tName == "-h"_L1) {
        say(usage());
        return StatusDone;
    }
    if (tName == "--version"_L1 || tName == "-v"_L1) {
        say(QStringLiteral("vkpublish " VKPUBLISH_VERSION));
        return StatusDone;
    }
    for (const Command& tCommand : sCommands) {
        if (tName == QLatin1String(tCommand.mName)) {
            return tCommand.mRun(pArguments.mid(1));
        }
    }
    complain(tName.isEmpty() ? u"A command is missing; see \"vkpublish --help\""_s
                             : u"Unknown command \"%1\"; see \"vkpublish --help\""_s.arg(tName));
    return StatusUsage;
}

} // namespace

int main(int pArgc, char** pArgv)
{
    const QCoreApplication tApplication(pArgc, pArgv);
    // Published files are readable for everybody, even if the user's own files are not. Keys are created with
    // their own, stricter mode.
    ::umask(022);
    // File names are packed as UTF-8, in any locale of the user.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    return run(QCoreApplication::arguments().mid(1));
}
