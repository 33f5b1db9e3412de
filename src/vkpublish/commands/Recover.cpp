#include "commands/Commands.h"

#include "CommandLine.h"
#include "keys/KeyFolder.h"
#include "publication/Recovery.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Updater.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

Failure recover(const CommandLine& pLine, KeyFolder* pKeys, Recovered* pTo)
{
    os::FileSystem& tFileSystem = os::realFileSystem();
    const auto tRoot = os::readFile(tFileSystem, pLine.value("root"), tuf::Limits().mRootLength);
    if (!tRoot) {
        return tRoot.failure();
    }
    if (Failure tFailure = pKeys->openWithoutRecord()) {
        return tFailure;
    }
    const RecordUse tUse = pLine.isSet("refresh-only") ? RecordUse::RefreshingOnly : RecordUse::Publishing;
    if (Failure tFailure = recoverRecord(tFileSystem, pLine.repository(), *tRoot, tUse, pKeys, pTo)) {
        return tFailure;
    }
    return pTo->mProblems.isEmpty() ? pKeys->save() : Failure();
}

void print(const CommandLine& pLine, const Recovered& pRecovered)
{
    const QString tUntil = pRecovered.mExpires.toUTC().toString(Qt::ISODate);
    if (pLine.isSet("refresh-only")) {
        say(u"Made the record in %1, for \"vkpublish refresh\" alone. The state is valid until %2"_s.arg(
            pLine.keys(), tUntil));
        return;
    }
    say(u"Recovered the record in %1: %2 packages, valid until %3"_s.arg(pLine.keys())
            .arg(pRecovered.mPackages)
            .arg(tUntil));
    for (const QString& tRole : pRecovered.mMissingRoles) {
        say(u"There are too few keys of the role %1"_s.arg(tRole));
    }
    say(u"Not recovered: what was added, removed or halted and not published, and which versions were withdrawn"_s);
    for (const QString& tFile : pRecovered.mUnnamed) {
        say(u"Not in the record: %1"_s.arg(tFile));
    }
    say(u"Next:            vkpublish verify %1 --against PLACE, with the place where machines look"_s.arg(
        pLine.argument(0)));
}

} // namespace

int cmdRecover(const QStringList& pArguments)
{
    CommandLine tLine(u"recover"_s,
                      u"Makes a lost record again: from the repository, as far as it is signed, and from the "
                      "keys in FOLDER. Verifies every package."_s);
    tLine.addRepository();
    tLine.addNoWait();
    tLine.addOption(u"root"_s, u"The root to start from, which you trust"_s, u"FILE"_s);
    tLine.addOption(u"refresh-only"_s,
                    u"Make the record of a machine that has the keys of timestamp and snapshot alone; reads "
                    "no packages"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    if (!tLine.isSet("keys") || !tLine.isSet("root")) {
        complain(u"recover needs --keys, the folder with the keys, and --root, the root that you trust"_s);
        return StatusUsage;
    }
    KeyFolder tKeys(os::realFileSystem(), tLine.keys(), tLine.patience());
    Recovered tRecovered;
    if (const Failure tFailure = recover(tLine, &tKeys, &tRecovered)) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    for (const QString& tProblem : tRecovered.mProblems) {
        complain(tProblem);
    }
    if (!tRecovered.mProblems.isEmpty()) {
        return StatusFailed;
    }
    print(tLine, tRecovered);
    return StatusDone;
}

} // namespace tarn::vkpublish
