#include "update/MachineState.h"

#include "tuf/Hashes.h"
#include "update/RunRequest.h"
#include "update/Workplace.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

QByteArray machineState(const RunRequest& pRequest, const Workplace& pWorkplace,
                        const QList<packages::InstalledPackage>& pLostIndexes)
{
    const packages::Manifest& tInstalled = pWorkplace.installed();
    QStringList tParts{pRequest.mAppLanguage,
                       pRequest.mDataLanguage,
                       pWorkplace.folders().installDir(),
                       pWorkplace.folders().root(packages::Kind::Data),
                       QString::number(tInstalled.mGeneration),
                       tInstalled.mRunId};
    for (const packages::InstalledPackage& tPackage : pLostIndexes) {
        tParts.append(u"no index "_s + tPackage.mFolder);
    }
    for (const packages::InstalledPackage& tPackage : tInstalled.mPackages) {
        tParts.append(tPackage.mFolder);
        if (pRequest.mDamaged.contains(tPackage.mFolder)) {
            tParts.append(u"damaged"_s);
        }
    }
    return tuf::sha256(tParts.join(u'\n').toUtf8());
}

} // namespace tarn::vkservice::update
