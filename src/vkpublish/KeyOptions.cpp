#include "KeyOptions.h"

#include "keys/CommandWords.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

void addKeyOptions(CommandLine* pLine)
{
    pLine->addOption(u"key-type"_s, u"ed25519, ecdsa, ecdsa-p384 or rsa"_s, u"TYPE"_s, u"ed25519"_s);
    pLine->addOption(u"no-passphrase"_s, u"Keep the new key unencrypted in its file"_s);
}

void addCommandOptions(CommandLine* pLine)
{
    pLine->addOption(u"sign-with"_s,
                     u"The private key is elsewhere: this command gets what is to be signed on its standard "
                     "input and writes the signature to its standard output"_s,
                     u"COMMAND"_s);
    pLine->addOption(u"public"_s, u"The public key for --sign-with, in PEM"_s, u"FILE"_s);
}

std::optional<KeyOrder> readKeyOptions(const CommandLine& pLine, KeyOptions pOptions)
{
    KeyOrder tOrder;
    tOrder.mType = pLine.value("key-type");
    tOrder.mEncrypt = !pLine.isSet("no-passphrase");
    if (!tuf::SigningKey::types().contains(tOrder.mType)) {
        complain(u"Unknown key type \"%1\""_s.arg(tOrder.mType));
        return std::nullopt;
    }
    const bool tHasCommand = pOptions == KeyOptions::WithCommand && pLine.isSet("sign-with");
    if (pOptions == KeyOptions::WithCommand && tHasCommand != pLine.isSet("public")) {
        complain(u"--sign-with and --public need each other"_s);
        return std::nullopt;
    }
    if (!tHasCommand) {
        return tOrder;
    }
    if (pLine.isSet("key-type") || pLine.isSet("no-passphrase")) {
        complain(u"--key-type and --no-passphrase are for a key that is made, not for one of --sign-with"_s);
        return std::nullopt;
    }
    tOrder.mCommand = pLine.value("sign-with");
    tOrder.mPublicFile = pLine.value("public");
    return checkCommand(tOrder.mCommand) ? std::optional(tOrder) : std::nullopt;
}

bool checkCommand(const QString& pCommand)
{
    if (commandWords(pCommand).isEmpty()) {
        complain(u"--sign-with takes a command with its arguments, whose quotes end"_s);
        return false;
    }
    return true;
}

} // namespace tarn::vkpublish
