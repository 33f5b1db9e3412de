#include "CommandLine.h"
#include "commands/Commands.h"
#include "CommandTable.h"

#include "internal/Failure.h"
#include "internal/StandardOutput.h"

#include <QtCore/QCoreApplication>

#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <clocale>
#include <span>

using namespace Qt::StringLiterals;

namespace {

using namespace tarn::vkpublish;

struct Group
{
    const char* mTitle;
    std::span<const Command> mCommands;
};

constexpr std::array sPackages{
    Command{"init", "begin a new repository: its keys and its first root", cmdInit},
    Command{"add", "pack a folder as a package, for the next publish", cmdAdd},
    Command{"remove", "withdraw a package with the next publish", cmdRemove},
    Command{"list", "show the packages, and what the next publish changes", cmdList},
    Command{"publish", "sign and publish all of this; renew the signatures", cmdPublish},
    Command{"halt", "stop the spread of a package at once", cmdHalt},
    Command{"refresh", "every night: renew the signatures that expire soon", cmdRefresh},
};

constexpr std::array sKeys{
    Command{"key", "add, remove and list keys; set how many must sign", cmdKey},
    Command{"rotate-key", "give a role a new key, for example after a theft", cmdRotateKey},
    Command{"payload", "write what somebody else is to sign", cmdPayload},
    Command{"show", "show in plain words what a payload changes", cmdShow},
    Command{"sign", "show a payload, ask, and sign it; needs no repository", cmdSign},
    Command{"add-signature", "take a signature back", cmdAddSignature},
    Command{"recover", "make a lost record again from the repository", cmdRecover},
};

constexpr std::array sCopies{
    Command{"verify", "check a repository as a machine would, and what is online", cmdVerify},
    Command{"mirror", "make and refresh a verified copy of a repository", cmdMirror},
};

constexpr std::array sGroups{
    Group{"Packages", sPackages},
    Group{"Keys, of one person or of several", sKeys},
    Group{"Copies", sCopies},
};

QString usage()
{
    QString tText =
        u"Usage: vkpublish COMMAND [arguments] [options]\n"
        "Makes, signs and mirrors repositories of packages, from which machines update themselves.\n"
        "\nA first repository:\n"
        "    vkpublish init DIR\n"
        "    vkpublish add DIR FOLDER --name NAME --version VERSION\n"
        "    vkpublish publish DIR\n"_s;
    for (const Group& tGroup : sGroups) {
        tText += u"\n%1:\n"_s.arg(QLatin1String(tGroup.mTitle)) + linesOf(tGroup.mCommands, 13);
    }
    tText +=
        u"\n\"vkpublish COMMAND --help\" explains a command, \"man vkpublish\" everything. --version shows "
        u"the version.\n"
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
    for (const Group& tGroup : sGroups) {
        if (const Command* tCommand = findCommand(tGroup.mCommands, tName)) {
            return tCommand->mRun(pArguments.mid(1));
        }
    }
    complain(tName.isEmpty() ? u"A command is missing; see \"vkpublish --help\""_s
                             : u"Unknown command \"%1\"; see \"vkpublish --help\""_s.arg(tName));
    return StatusUsage;
}

// A script must not take an answer that was cut off for a whole one. Whoever reads no further has what he
// wants.
int statusWith(int pLost, int pStatus)
{
    if (pLost == 0 || pLost == EPIPE || pStatus == StatusFailed || pStatus == StatusUsage) {
        return pStatus;
    }
    complain(tarn::Failure::fromErrno(pLost, u"write to standard output"_s).mText);
    return StatusFailed;
}

} // namespace

int main(int pArgc, char** pArgv)
{
    tarn::vkcore::holdStandardDescriptors();
    const QCoreApplication tApplication(pArgc, pArgv);
    // Published files are readable for everybody, even if the user's own files are not. Keys are created with
    // their own, stricter mode.
    ::umask(022);
    // File names are packed as UTF-8, in any locale of the user.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const int tStatus = run(QCoreApplication::arguments().mid(1));
    return statusWith(tarn::vkcore::flushOutput(), tStatus);
}
