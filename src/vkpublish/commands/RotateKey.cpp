#include "commands/Commands.h"

#include "CommandLine.h"
#include "commands/NewKey.h"
#include "KeyOptions.h"
#include "keys/Roles.h"
#include "keys/RootDocument.h"
#include "keys/SigningTime.h"
#include "publication/Rotation.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

void report(const KeyFolder& pKeys, const QString& pRole, const QDateTime& pOldUntil)
{
    const Result<std::optional<Draft>> tDraft = pKeys.draft(tuf::sRoot);
    const Result<RootDocument> tRoot = RootDocument::read(pKeys.mRecord.mRoot);
    if (!tDraft || *tDraft || !tRoot) {
        say(u"The new key is in a draft of the root, and the old one in use until that is published"_s);
        return;
    }
    const QString tFile = pKeys.mRecord.mKeys.value(tRoot->keyIds(pRole).value(0)).mFile;
    say(u"The role %1 has a new key: %2/%3. %4"_s.arg(
        pRole, pKeys.path(), tFile,
        pRole == tuf::sRoot ? u"The old key's file may be deleted."_s
                            : u"Keep the old key's file until %1: until then both keys sign."_s.arg(
                                  pOldUntil.toUTC().toString(Qt::ISODate))));
    if (pRole == tuf::sTargets) {
        say(u"If the old key was stolen, replace those of snapshot and timestamp, too, unless they were "
            u"elsewhere. "
            "\"vkpublish verify DIR --against PLACE\" shows which packages a thief has added: add a higher version of each"_s);
    }
}

// What signs the change in any case is opened first: nothing has changed if this fails.
Result<KeyFile> makeNew(const KeyOrder& pOrder, const QString& pRole, KeyFolder* pKeys)
{
    const Failure tFailure = pKeys->open();
    const Result<RootDocument> tRoot = tFailure ? tFailure : RootDocument::read(pKeys->mRecord.mRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    QStringList tIds = tRoot->keyIds(tuf::sRoot) + tRoot->keyIds(tuf::sTimestamp) + tRoot->keyIds(pRole);
    tIds += pRole == tuf::sTargets ? tRoot->keyIds(tuf::sSnapshot) : QStringList();
    const Result<QList<Signer>> tSigners = pKeys->readSigners(tIds);
    return tSigners ? newKey(pOrder, *pKeys) : tSigners.failure();
}

} // namespace

int cmdRotateKey(const QStringList& pArguments)
{
    CommandLine tLine(u"rotate-key"_s,
                      u"Gives a role a new key and publishes. Clients follow automatically and no longer "
                      "accept the old key alone."_s);
    tLine.addRepository();
    tLine.addNoWait();
    tLine.addArgument(u"ROLE"_s, u"root, targets, snapshot or timestamp"_s);
    addKeyOptions(&tLine);
    addCommandOptions(&tLine);
    tLine.addOption(u"root-days"_s, u"How long the new root is valid, in days"_s, u"DAYS"_s, u"3650"_s);
    tLine.addOption(u"expires-days"_s, u"How long timestamp and snapshot are valid, in days"_s, u"DAYS"_s,
                    u"14"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const QString tRole = tLine.argument(1);
    const std::optional<int> tRootDays = tLine.number("root-days", 1, 36500);
    const std::optional<int> tDays = tLine.number("expires-days", 1, 3650);
    const std::optional<KeyOrder> tOrder = readKeyOptions(tLine, KeyOptions::WithCommand);
    if (!roleNames().contains(tRole)) {
        complain(u"Unknown role \"%1\""_s.arg(tRole));
        return StatusUsage;
    }
    if (!tRootDays || !tDays || !tOrder) {
        return StatusUsage;
    }

    const QDateTime tNow = signingTime();
    const PublicationTimes tTimes{
        .mNow = tNow, .mExpires = tNow.addDays(*tDays), .mTargetsExpires = tNow.addDays(365)};
    KeyFolder tKeys(os::realFileSystem(), tLine.keys(), tLine.patience());
    Publication tPublication(os::realFileSystem(), tLine.repository(), tKeys);
    QDateTime tOldUntil;
    const Result<KeyFile> tNew = makeNew(*tOrder, tRole, &tKeys);
    const Failure tFailure =
        tNew ? rotateKey(&tKeys, &tPublication, tRole, *tNew, tTimes, tNow.addDays(*tRootDays), &tOldUntil)
             : tNew.failure();
    if (tFailure) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    report(tKeys, tRole, tOldUntil);
    for (const QString& tNote : tPublication.notes()) {
        complain(tNote);
    }
    return StatusDone;
}

} // namespace tarn::vkpublish
