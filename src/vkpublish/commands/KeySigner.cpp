#include "commands/KeyCommands.h"

#include "CommandLine.h"
#include "KeyOptions.h"
#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "publication/Drafts.h"

#include "os/FileSystem.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qsizetype sShortestId = 8; // of what stands for a whole id

struct FoundKey
{
    QString mRole;
    QJsonObject mPublicJson;
};

// In the root of the record, or in its draft.
Result<FoundKey> find(const KeyFolder& pKeys, const QString& pBeginning)
{
    QMap<QString, FoundKey> tFound; // by id: a key may have several roles
    for (const Result<RootDocument>& tRoot : {RootDocument::read(pKeys.mRecord.mRoot), nextRoot(pKeys)}) {
        if (!tRoot) {
            return tRoot.failure();
        }
        for (const QString& tRole : roleNames()) {
            for (const QString& tId : tRoot->keyIds(tRole)) {
                if (tId.startsWith(pBeginning)) {
                    tFound.insert(tId, {tRole, tRoot->publicJson(tId)});
                }
            }
        }
    }
    if (pBeginning.size() < sShortestId || tFound.size() != 1) {
        return Failure::content(u"There is no key \"%1\", or more than one that begins so: give its id as "
                                "\"vkpublish key list\" shows it"_s.arg(pBeginning));
    }
    return tFound.first();
}

Failure set(const CommandLine& pLine)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys());
    if (Failure tFailure = tKeys.open()) {
        return tFailure;
    }
    const Result<FoundKey> tFound = find(tKeys, pLine.argument(1));
    if (!tFound) {
        return tFound.failure();
    }
    const Result<KeyFile> tKey = keyOfCommand(pLine.value("sign-with"), tFound->mPublicJson);
    if (!tKey) {
        return tKey.failure();
    }
    const QString tBefore = tKeys.mRecord.mKeys.value(tKey->mSigner.id()).mFile;
    if (Failure tFailure = tKeys.addKey(tFound->mRole, *tKey)) {
        return tFailure;
    }
    const QString tNow = tKeys.mRecord.mKeys.value(tKey->mSigner.id()).mFile;
    say(u"The command of %1/%2 signs for the key %3"_s.arg(pLine.keys(), tNow, tKey->mSigner.id()));
    if (!tBefore.isEmpty() && tBefore != tNow) {
        say(u"%1/%2 is not needed any longer"_s.arg(pLine.keys(), tBefore));
    }
    return tKeys.save();
}

} // namespace

int cmdKeySigner(const QStringList& pArguments)
{
    CommandLine tLine(
        u"key signer"_s,
        u"Sets the command that signs for a key which a role has already. Nothing is published."_s);
    tLine.addRepository();
    tLine.addArgument(u"ID"_s, u"The key's id, or its first 8 or more digits"_s);
    tLine.addOption(u"sign-with"_s,
                    u"Gets what is to be signed on its standard input and writes the signature to its "
                    "standard output"_s,
                    u"COMMAND"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    if (!checkCommand(tLine.value("sign-with"))) {
        return StatusUsage;
    }
    if (const Failure tFailure = set(tLine)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    return StatusDone;
}

} // namespace tarn::vkpublish
