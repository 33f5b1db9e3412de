#include "control/PackageEntries.h"

#include "internal/PlainText.h"
#include "packages/CheckRecord.h"
#include "packages/Manifest.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::control {

using vkcore::protocol::PackageEntry;

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

} // namespace tarn::vkservice::control
