#include "commands/KeyCommands.h"

#include "CommandLine.h"
#include "commands/DraftReport.h"
#include "commands/NewKey.h"
#include "KeyOptions.h"
#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "keys/SigningTime.h"
#include "publication/Drafts.h"
#include "publication/Publication.h"

#include "os/FileSystem.h"

#include <functional>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr int sMostKeys = 16;
constexpr qsizetype sShortestId = 8; // of what stands for a whole id

using Change = std::function<Failure(KeyFolder*, RootDocument*)>;

void declare(CommandLine* pLine)
{
    pLine->addRepository();
    pLine->addNoWait();
    pLine->addArgument(u"ROLE"_s, u"root, targets, snapshot or timestamp"_s);
    pLine->addOption(u"root-days"_s, u"How long the new root is valid, in days"_s, u"DAYS"_s, u"3650"_s);
}

Failure run(const CommandLine& pLine, int pDays, const Change& pChange)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys(), pLine.patience());
    if (Failure tFailure = tKeys.open()) {
        return tFailure;
    }
    if (Failure tFailure = Publication(os::realFileSystem(), pLine.repository(), tKeys).catchUp()) {
        return tFailure;
    }
    Result<RootDocument> tRoot = nextRoot(tKeys);
    if (!tRoot) {
        return tRoot.failure();
    }
    if (Failure tFailure = pChange(&tKeys, &*tRoot)) {
        return tFailure;
    }
    qsizetype tVoid = 0;
    if (Failure tFailure = draftRoot(&tKeys, *tRoot, signingTime().addDays(pDays), &tVoid)) {
        return tFailure;
    }
    if (tVoid > 0) {
        complain(u"The draft has changed, and the signatures that it had are void"_s);
    }
    const Result<std::optional<Draft>> tDraft = tKeys.draft(tuf::sRoot);
    const Result<QString> tReport =
        tDraft ? draftReport(tKeys, **tDraft, pLine) : Result<QString>(tDraft.failure());
    if (tReport) {
        say(*tReport);
    }
    return tReport.failure();
}

// Checks the role and applies a change.
int change(const CommandLine& pLine, const Change& pChange)
{
    const std::optional<int> tDays = pLine.number("root-days", 1, 36500);
    if (!roleNames().contains(pLine.argument(1))) {
        complain(u"Unknown role \"%1\""_s.arg(pLine.argument(1)));
        return StatusUsage;
    }
    if (!tDays) {
        return StatusUsage;
    }
    if (const Failure tFailure = run(pLine, *tDays, pChange)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    return StatusDone;
}

Failure addTo(RootDocument* pRoot, const QString& pRole, const QJsonObject& pPublicJson)
{
    const QString tId = tuf::keyId(pPublicJson);
    if (pRoot->keyIds(pRole).contains(tId)) {
        return Failure::content(u"The role %1 has the key %2 already"_s.arg(pRole, tId));
    }
    if (pRoot->keyIds(pRole).size() >= sMostKeys) {
        return Failure::content(u"The role %1 has %2 keys, which is the most"_s.arg(pRole).arg(sMostKeys));
    }
    pRoot->addKey(pRole, pPublicJson);
    say(u"New key of the role %1: %2"_s.arg(pRole, tId));
    return {};
}

Failure addNew(KeyFolder* pKeys, RootDocument* pRoot, const QString& pRole, const KeyOrder& pOrder)
{
    const Result<KeyFile> tKey = newKey(pOrder, *pKeys);
    if (!tKey) {
        return tKey.failure();
    }
    if (Failure tFailure = addTo(pRoot, pRole, tKey->mSigner.publicJson())) {
        return tFailure;
    }
    return pKeys->addKey(pRole, *tKey);
}

Result<QString> findId(const RootDocument& pRoot, const QString& pRole, const QString& pBeginning)
{
    QStringList tIds = pRoot.keyIds(pRole);
    tIds.removeIf([&](const QString& pId) { return !pId.startsWith(pBeginning); });
    if (pBeginning.size() < sShortestId || tIds.size() != 1) {
        return Failure::content(
            u"The role %1 has no key \"%2\", or more than one that begins so: give its id as "
            "\"vkpublish key list\" shows it"_s.arg(pRole, pBeginning));
    }
    return tIds.first();
}

} // namespace

int cmdKeyAdd(const QStringList& pArguments)
{
    CommandLine tLine(u"key add"_s,
                      u"Gives a role one more key: a new one, whose private half is made in the key "
                      "folder, or that of somebody else."_s);
    declare(&tLine);
    addKeyOptions(&tLine);
    addCommandOptions(&tLine);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    // A public key without a command is that of somebody else.
    const bool tIsForeign = tLine.isSet("public") && !tLine.isSet("sign-with");
    const std::optional<KeyOrder> tOrder =
        tIsForeign ? KeyOrder() : readKeyOptions(tLine, KeyOptions::WithCommand);
    if (!tOrder) {
        return StatusUsage;
    }
    return change(tLine, [&](KeyFolder* pKeys, RootDocument* pRoot) {
        const QString tRole = tLine.argument(1);
        if (!tIsForeign) {
            return addNew(pKeys, pRoot, tRole, *tOrder);
        }
        const Result<QJsonObject> tKey = readPublicKey(tLine.value("public"));
        return tKey ? addTo(pRoot, tRole, *tKey) : tKey.failure();
    });
}

int cmdKeyRemove(const QStringList& pArguments)
{
    CommandLine tLine(u"key remove"_s, u"Takes a key from a role."_s);
    declare(&tLine);
    tLine.addArgument(u"ID"_s, u"The key's id, or its first 8 or more digits"_s);
    tLine.addOption(u"lost"_s,
                    u"The key can't sign any more, not even during the change: machines with the old "
                    "root have to wait for the new one"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    return change(tLine, [&](KeyFolder* pKeys, RootDocument* pRoot) -> Failure {
        const QString tRole = tLine.argument(1);
        const Result<QString> tId = findId(*pRoot, tRole, tLine.argument(2));
        if (!tId) {
            return tId.failure();
        }
        const qsizetype tLeft = pRoot->keyIds(tRole).size() - 1;
        if (tLeft < pRoot->threshold(tRole)) {
            return Failure::content(
                u"The role %1 needs %2 signatures, and would have %3 keys: add a key first, or lower the threshold"_s
                    .arg(tRole)
                    .arg(pRoot->threshold(tRole))
                    .arg(tLeft));
        }
        pRoot->removeKey(tRole, *tId);
        if (tLine.isSet("lost") && !pKeys->mRecord.mLostKeys.contains(*tId)) {
            pKeys->mRecord.mLostKeys.append(*tId);
        }
        return {};
    });
}

int cmdKeyThreshold(const QStringList& pArguments)
{
    CommandLine tLine(u"key threshold"_s, u"Sets how many keys of a role must sign."_s);
    declare(&tLine);
    tLine.addArgument(u"M"_s, u"How many"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    bool tOk = false;
    const int tThreshold = tLine.argument(2).toInt(&tOk);
    if (!tOk || tThreshold < 1 || tThreshold > sMostKeys) {
        complain(u"M is a number from 1 to %1, not \"%2\""_s.arg(sMostKeys).arg(tLine.argument(2)));
        return StatusUsage;
    }
    return change(tLine, [&](KeyFolder*, RootDocument* pRoot) {
        pRoot->setThreshold(tLine.argument(1), tThreshold); // draftRoot() refuses too many
        return Failure();
    });
}

} // namespace tarn::vkpublish
