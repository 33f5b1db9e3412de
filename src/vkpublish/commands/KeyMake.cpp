#include "commands/KeyCommands.h"

#include "CommandLine.h"
#include "KeyOptions.h"
#include "keys/Passphrases.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/SigningKey.h"

#include <QtCore/QFile>
#include <QtCore/QFileInfo>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

Failure make(const QString& pFile, const KeyOrder& pOrder)
{
    const QString tPublic = pFile + ".pub"_L1;
    for (const QString& tPath : {pFile, tPublic}) {
        if (QFileInfo::exists(tPath)) {
            return Failure::content(u"%1 is there already"_s.arg(tPath));
        }
    }
    Passphrases tPassphrases(pFile);
    const Result<KeyFile> tKey = makeKey(pOrder, &tPassphrases);
    if (!tKey) {
        return tKey.failure();
    }
    if (Failure tFailure = os::replaceFile(os::realFileSystem(), pFile, tKey->mContent, 0600)) {
        return tFailure;
    }
    const QByteArray tPem = tuf::publicPemOf(tKey->mSigner.publicJson());
    if (Failure tFailure = os::replaceFile(os::realFileSystem(), tPublic, tPem, 0644)) {
        (void)os::realFileSystem().unlink(
            QFile::encodeName(pFile)); // nobody knows it, and this can be repeated
        return tFailure;
    }
    say((pOrder.mCommand.isEmpty() ? u"Private key: %1 (stays here, and keep a copy)"_s
                                   : u"Command:     %1 (stays here)"_s)
            .arg(pFile));
    say(u"Public key:  %1 (for \"vkpublish key add\")"_s.arg(tPublic));
    say(u"Id:          %1 (tell it by another way than the file)"_s.arg(tKey->mSigner.id()));
    return {};
}

} // namespace

int cmdKeyMake(const QStringList& pArguments)
{
    CommandLine tLine(u"key make"_s,
                      u"Makes a key on a machine without the repository: FILE, and its public half in "
                      "FILE.pub."_s);
    tLine.addArgument(u"FILE"_s,
                      u"The private key, such as root-alice.pem, or with --sign-with root-alice.signer"_s);
    addKeyOptions(&tLine);
    addCommandOptions(&tLine);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const std::optional<KeyOrder> tOrder = readKeyOptions(tLine, KeyOptions::WithCommand);
    if (!tOrder) {
        return StatusUsage;
    }
    if (tLine.argument(0).endsWith(sSignerSuffix) == tOrder->mCommand.isEmpty()) {
        complain(u"The name of FILE ends with \"%1\" if a command signs, and only then"_s.arg(sSignerSuffix));
        return StatusUsage;
    }
    if (const Failure tFailure = make(tLine.argument(0), *tOrder)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    return StatusDone;
}

} // namespace tarn::vkpublish
