#include "control/RunRequests.h"

#include "control/KnownVariables.h"
#include "control/MachineId.h"
#include "packages/CheckRecord.h"
#include "process/ServiceApplication.h"
#include "store/ConfigVariables.h"
#include "store/HoldTable.h"
#include "store/ServerTable.h"
#include "store/Settings.h"
#include "update/Source.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using store::ServerEntry;
using update::RunRequest;

namespace {

update::ServerAccess accessOf(const ServerEntry& pEntry)
{
    return {.mName = pEntry.mName.isEmpty() ? pEntry.mUri : pEntry.mName,
            .mUri = pEntry.mUri,
            .mUser = pEntry.mUser,
            .mPassword = pEntry.mPassword.value_or(QString())};
}

// Names the server that users will assume to be in use: the default one, else the first.
QString disabledServerText(const QList<ServerEntry>& pServers)
{
    if (pServers.isEmpty()) {
        return {};
    }
    const auto tDefault =
        std::find_if(pServers.begin(), pServers.end(), [](const auto& pEntry) { return pEntry.mDefault; });
    const auto tNamed = tDefault == pServers.end() ? pServers.begin() : tDefault;
    return u"The %1 %2 is disabled; \"rkm update-server --match-index=%3 --enable\" enables it"_s
        .arg(tNamed->mDefault ? u"default server"_s : u"server"_s, update::serverLabel(accessOf(*tNamed)))
        .arg(tNamed - pServers.begin() + 1);
}

QList<update::ServerAccess> enabledServers(const QList<ServerEntry>& pServers)
{
    QList<update::ServerAccess> tEnabled;
    for (const bool tDefault : {true, false}) {
        for (const ServerEntry& tEntry : pServers) {
            if (tEntry.mEnabled && tEntry.mDefault == tDefault) {
                tEnabled.append(accessOf(tEntry));
            }
        }
    }
    return tEnabled;
}

// An unreadable value must not count as unset: an update without caFile trusts other certificates.
bool readVariables(const store::ConfigVariables& pVariables, RunRequest* pTo)
{
    bool tAllRead = true;
    const auto tText = [&](const char* pName) { return pVariables.text(QLatin1String(pName), &tAllRead); };
    const auto tNumber = [&](const char* pName) {
        return pVariables.number(QLatin1String(pName), &tAllRead);
    };
    pTo->mInstallDir = tText("install.dir");
    pTo->mRootFile = tText("update.rootFile");
    pTo->mCaFile = tText("update.caFile");
    pTo->mWaitForAppsSeconds = static_cast<int>(tNumber("update.waitForApps"));
    pTo->mParallelDownloads = static_cast<int>(tNumber("update.parallelDownloads"));
    pTo->mBytesPerSecond = tNumber("update.bandwidthLimit");
    pTo->mLeastBytesPerSecond = tNumber("update.minimumRate");
    pTo->mCheckSeconds = static_cast<int>(tNumber("update.checkTimeout"));
    pTo->mKeepGenerations = static_cast<int>(tNumber("update.keepGenerations"));
    pTo->mChoices.mOnlySecurity = takesOnlySecurity(pVariables, &tAllRead);
    return tAllRead;
}

bool readChoices(const RunSources& pSources, update::Choices* pTo)
{
    const auto tHolds = pSources.mHolds.entries();
    const auto tChannel = pSources.mSettings.channel();
    if (!tHolds || !tChannel) {
        return false;
    }
    for (const store::HoldEntry& tHold : *tHolds) {
        pTo->mHolds.append({tHold.mName, update::versionPrefix(tHold.mVersions), tHold.mUntil});
    }
    pTo->mChannel = *tChannel;
    pTo->mSeed = phaseSeed();
    return true;
}

} // namespace

std::optional<RunRequest> runRequest(const RunSources& pSources)
{
    const auto tServers = pSources.mServers.entries();
    const auto tProxy = pSources.mSettings.proxy();
    const auto tAppLanguage = pSources.mSettings.appLanguage();
    const auto tDataLanguage = pSources.mSettings.dataLanguage();
    const auto tDataDir = pSources.mSettings.dataDirectory();
    RunRequest tRequest;
    const bool tAllRead =
        readVariables(pSources.mVariables, &tRequest) && readChoices(pSources, &tRequest.mChoices);
    if (!tServers || !tProxy || !tAppLanguage || !tDataLanguage || !tDataDir || !tAllRead) {
        return std::nullopt;
    }
    tRequest.mServers = enabledServers(*tServers);
    tRequest.mWhyNoServer = tRequest.mServers.isEmpty() ? disabledServerText(*tServers) : QString();
    tRequest.mProxyMode = tProxy->mMode;
    tRequest.mProxy = tProxy->mProxy;
    tRequest.mAppLanguage = pSources.mApp.languageOr(*tAppLanguage);
    tRequest.mDataLanguage = pSources.mApp.languageOr(*tDataLanguage);
    tRequest.mStateDir = pSources.mApp.getStateDir();
    tRequest.mDataDir = *tDataDir;
    tRequest.mCheckDir = pSources.mApp.configDir() + u"/check.d"_s;
    tRequest.mDamaged = pSources.mChecks.record().damagedFolders();
    return tRequest;
}

} // namespace tarn::vkservice::control
