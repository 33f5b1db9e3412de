#include "commands/KeyCommands.h"

#include "CommandLine.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/SigningKey.h"

#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

Failure make(const QString& pFile, const QString& pType)
{
    const QString tPublic = pFile + ".pub"_L1;
    for (const QString& tPath : {pFile, tPublic}) {
        if (QFileInfo::exists(tPath)) {
            return Failure::content(u"%1 is there already"_s.arg(tPath));
        }
    }
    const std::optional<tuf::SigningKey> tKey = tuf::SigningKey::generate(pType);
    if (!tKey) {
        return Failure::content(u"A key of type %1 can't be created"_s.arg(pType));
    }
    if (Failure tFailure = os::replaceFile(os::realFileSystem(), pFile, tKey->toPem(), 0600)) {
        return tFailure;
    }
    if (Failure tFailure = os::replaceFile(os::realFileSystem(), tPublic, tKey->publicPem(), 0644)) {
        return tFailure;
    }
    say(u"Private key: %1 (stays here, and keep a copy)"_s.arg(pFile));
    say(u"Public key:  %1 (for \"vkpublish key add\")"_s.arg(tPublic));
    say(u"Id:          %1 (tell it by another way than the file)"_s.arg(tKey->id()));
    return {};
}

} // namespace

int cmdKeyMake(const QStringList& pArguments)
{
    CommandLine tLine(u"key make"_s,
                      u"Makes a key on a machine without the repository: FILE, and its public half in "
                      "FILE.pub."_s);
    tLine.addArgument(u"FILE"_s, u"The private key, such as root-alice.pem"_s);
    tLine.addOption(u"key-type"_s, u"ed25519, ecdsa, ecdsa-p384 or rsa"_s, u"TYPE"_s, u"ed25519"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    if (!tuf::SigningKey::types().contains(tLine.value("key-type"))) {
        complain(u"Unknown key type \"%1\""_s.arg(tLine.value("key-type")));
        return StatusUsage;
    }
    if (const Failure tFailure = make(tLine.argument(0), tLine.value("key-type"))) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    return StatusDone;
}

} // namespace tarn::vkpublish
