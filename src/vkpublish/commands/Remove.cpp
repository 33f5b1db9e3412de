#include "commands/Commands.h"

#include "CommandLine.h"
#include "keys/KeyFolder.h"
#include "publication/Releases.h"

#include "os/FileSystem.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

int cmdRemove(const QStringList& pArguments)
{
    CommandLine tLine(u"remove"_s,
                      u"Withdraws a package from the next \"publish\" on. Machines that have it keep it."_s);
    tLine.addRepository();
    tLine.addNoWait();
    tLine.addArgument(u"NAME"_s, u"Name of the package"_s);
    tLine.addOption(u"version"_s, u"Only this version; by default all"_s, u"VERSION"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    std::optional<vkcore::Version> tVersion;
    if (tLine.isSet("version")) {
        bool tOk = false;
        tVersion = vkcore::Version::fromString(tLine.value("version"), &tOk);
        if (!tOk) {
            complain(u"\"%1\" is not a version"_s.arg(tLine.value("version")));
            return StatusUsage;
        }
    }
    KeyFolder tKeys(os::realFileSystem(), tLine.keys(), tLine.patience());
    if (const Failure tFailure = tKeys.open()) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    const QStringList tArchives = archivesOf(tKeys.mRecord.mTargets, tLine.argument(1), tVersion);
    if (tArchives.isEmpty()) {
        complain(u"Unknown package: %1"_s.arg(tLine.argument(1)));
        return StatusFailed;
    }
    for (const QString& tArchive : tArchives) {
        tKeys.mRecord.mTargets.remove(tArchive);
    }
    if (const Failure tFailure = tKeys.save()) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    for (const QString& tArchive : tArchives) {
        say(u"Removed %1"_s.arg(tArchive));
    }
    return StatusDone;
}

} // namespace tarn::vkpublish
