#include "commands/KeyCommands.h"

#include "CommandLine.h"
#include "commands/Commands.h"
#include "CommandTable.h"

#include <array>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr std::array sCommands{
    Command{"add DIR ROLE", "give a role one more key", cmdKeyAdd},
    Command{"remove DIR ROLE ID", "take a key from a role", cmdKeyRemove},
    Command{"threshold DIR ROLE M", "how many keys of a role must sign", cmdKeyThreshold},
    Command{"list DIR", "show the keys of all roles", cmdKeyList},
    Command{"signer DIR ID", "set the command that signs for a key", cmdKeySigner},
    Command{"make FILE", "make a key on a machine without the repository", cmdKeyMake},
};

QString usage()
{
    QString tText =
        u"Usage: vkpublish key COMMAND [arguments] [options]\n"
        "Changes who may sign. The change is a draft of the root until \"publish\" publishes it.\n\n"
        "Commands:\n"_s;
    tText += linesOf(sCommands, 21);
    tText += u"\nOptions:\n"
             "  --keys <FOLDER>    folder of keys and record; by default DIR.keys\n"
             "  --key-type <TYPE>  ed25519, ecdsa, ecdsa-p384 or rsa (add, make)\n"
             "  --no-passphrase    keep the new key unencrypted (add, make)\n"
             "  --public <FILE>    somebody's public key, instead of a new one (add)\n"
             "  --sign-with <COMMAND>  a command signs with that key (add, signer, make)\n"
             "  --lost             the key can't sign any more, not even during the change (remove)\n"
             "  --root-days <DAYS> how long the new root is valid\n"_s;
    return tText + u"\n\"vkpublish key COMMAND --help\" explains a command."_s;
}

} // namespace

int cmdKey(const QStringList& pArguments)
{
    const QString tName = pArguments.value(0);
    if (tName == "--help"_L1 || tName == "-h"_L1) {
        say(usage());
        return StatusDone;
    }
    if (const Command* tCommand = findCommand(sCommands, tName)) {
        return tCommand->mRun(pArguments.mid(1));
    }
    complain(
        u"key is followed by add, remove, threshold, list, signer or make; see \"vkpublish key --help\""_s);
    return StatusUsage;
}

} // namespace tarn::vkpublish
