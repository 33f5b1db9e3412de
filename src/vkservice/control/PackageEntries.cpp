#include "control/PackageEntries.h"

#include "internal/PlainText.h"
#include "packages/CheckRecord.h"
#include "packages/Manifest.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using namespace vkcore::protocol;

namespace {

constexpr qsizetype sMaxDetailed = 500; // packages whose findings go into one answer
// Of exact paths there. Together with the limits of the others no answer comes near the longest line.
constexpr qsizetype sMaxExactPaths = 100 * 1000;

// Not checked, so far.
PackageEntry entryOf(const packages::InstalledPackage& pPackage, const QString& pLanguage)
{
    PackageEntry tEntry;
    tEntry.mName = pPackage.mInfo.mName;
    tEntry.mVersion = pPackage.mInfo.mVersion.version().toString();
    tEntry.mFolder = pPackage.mFolder;
    tEntry.mIndexed = pPackage.mInfo.mIndex.has_value();
    tEntry.mState = u"unchecked"_s;
    tEntry.mTitle = vkcore::singleLine(pPackage.mInfo.mTitle.bestValue(pLanguage));
    tEntry.mLanguage = pPackage.mInfo.mLanguage;
    tEntry.mSize = pPackage.mInfo.mInstalledSize;
    return tEntry;
}

// pInDetail: with what is wrong.
void addCheck(const packages::PackageCheck& pCheck, bool pInDetail, PackageEntry* pTo)
{
    pTo->mState = packages::stateWord(pCheck.mState);
    pTo->mChecked = pCheck.mChecked.toLocalTime();
    pTo->mFiles = pCheck.mFiles;
    pTo->mBytes = pCheck.mBytes;
    pTo->mDamageCount = pCheck.mCount;
    for (qsizetype i = 0; pInDetail && i < pCheck.mFindings.size(); ++i) {
        const packages::Finding& tFinding = pCheck.mFindings[i];
        pTo->mDamage.append({tFinding.mPath, tFinding.mProblem, tFinding.mExactPath});
    }
}

// *pSize: of those in the packages before.
void boundExactPaths(PackageEntry* pPackage, qsizetype* pSize)
{
    for (DamageEntry& tDamage : pPackage->mDamage) {
        *pSize += tDamage.mExactPath ? tDamage.mExactPath->size() : 0;
        if (*pSize > sMaxExactPaths) {
            tDamage.mExactPath.reset();
        }
    }
}

} // namespace

PackageEntries packageEntries(const packages::Manifest& pInstalled, const packages::CheckRecord& pChecks,
                              const QString& pLanguage)
{
    PackageEntries tEntries;
    qsizetype tDetailed = 0;
    qsizetype tExact = 0;
    for (const packages::InstalledPackage& tPackage : pInstalled.mPackages) {
        PackageEntry& tEntry = tEntries.mPackages.emplaceBack(entryOf(tPackage, pLanguage));
        if (const packages::PackageCheck* tCheck = pChecks.find(tPackage.mFolder)) {
            tDetailed += !tCheck->mFindings.isEmpty();
            addCheck(*tCheck, tDetailed <= sMaxDetailed, &tEntry);
            boundExactPaths(&tEntry, &tExact);
        }
    }
    return tEntries;
}

} // namespace tarn::vkservice::control
