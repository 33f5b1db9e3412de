#include "commands/KeyCommands.h"

#include "CommandLine.h"
#include "commands/DraftReport.h"
#include "keys/KeyFolder.h"
#include "keys/Roles.h"
#include "keys/RootDocument.h"

#include "os/FileSystem.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

QString place(const KeyFolder& pKeys, const QString& pId)
{
    const QString tFile = pKeys.mRecord.mKeys.value(pId).mFile;
    return tFile.isEmpty() ? u"elsewhere"_s : pKeys.isHere(pId) ? tFile : u"elsewhere (was %1)"_s.arg(tFile);
}

void print(const KeyFolder& pKeys, const RootDocument& pRoot)
{
    say(u"Root, version %1, valid until %2"_s.arg(pRoot.version())
            .arg(pRoot.expires().toString(Qt::ISODate)));
    for (const QString& tRole : roleNames()) {
        const QStringList tIds = pRoot.keyIds(tRole);
        say(u"%1: %2 of %3 keys must sign"_s.arg(tRole).arg(pRoot.threshold(tRole)).arg(tIds.size()));
        for (const QString& tId : tIds) {
            say(u"  %1  %2  %3"_s.arg(tId, pRoot.publicJson(tId)["scheme"_L1].toString(), place(pKeys, tId)));
        }
    }
}

Failure list(const CommandLine& pLine)
{
    KeyFolder tKeys(os::realFileSystem(), pLine.keys());
    if (Failure tFailure = tKeys.openForReading()) {
        return tFailure;
    }
    const Result<RootDocument> tRoot = RootDocument::read(tKeys.mRecord.mRoot);
    if (!tRoot) {
        return tRoot.failure();
    }
    print(tKeys, *tRoot);
    for (const QString& tRole : {tuf::sRoot, tuf::sTargets}) {
        const Result<std::optional<Draft>> tDraft = tKeys.draft(tRole);
        if (!tDraft) {
            return tDraft.failure();
        }
        if (!*tDraft) {
            continue;
        }
        const Result<QString> tReport = draftReport(tKeys, **tDraft, pLine);
        if (!tReport) {
            return tReport.failure();
        }
        say(*tReport);
    }
    return {};
}

} // namespace

int cmdKeyList(const QStringList& pArguments)
{
    CommandLine tLine(u"key list"_s,
                      u"Shows the keys of all roles, where their private halves are, and when the "
                      "root expires."_s);
    tLine.addRepository();
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    if (const Failure tFailure = list(tLine)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    return StatusDone;
}

} // namespace tarn::vkpublish
