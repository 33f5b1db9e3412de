// The metadata files of a repository, each role by its parser: format, canonical form, keys and signatures,
// delegations.
#include "tuf/DelegationSearch.h"
#include "tuf/Metadata.h"
#include "tuf/Threshold.h"

#include <cstdlib>

using namespace Qt::StringLiterals;

using namespace tarn::tuf;

namespace {

void checkSignatures(const Signed& pFile, const KeyMap& pKeys)
{
    const RoleKeys tAll{pKeys.keys(), 2};
    (void)verifyThreshold(u"fuzzed"_s, pFile, tAll, pKeys); // any answer will do
}

void searchDelegations(const Delegations& pDelegations, const QMap<QString, TargetFile>& pTargets)
{
    constexpr int sMaxNames = 100;
    const QStringList tNames = delegatedRoleNames(pDelegations, sMaxNames);
    for (const QString& tName : tNames) {
        if (keysOfRole(pDelegations, tName) == nullptr) {
            std::abort();
        }
    }
    for (auto tIt = pTargets.begin(); tIt != pTargets.end(); ++tIt) {
        rolesForTarget(pDelegations, tIt.key());
    }
    rolesForTarget(pDelegations, u"applications/viewer-1.0.0.0.tar.zst"_s);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* pData, size_t pSize)
{
    const QByteArray tFile(reinterpret_cast<const char*>(pData), static_cast<qsizetype>(pSize));
    Root tRoot;
    if (!parseRoot(tFile, &tRoot)) {
        checkSignatures(tRoot, tRoot.mKeys);
    }
    Targets tTargets;
    if (!parseTargets(tFile, sTargets, &tTargets)) {
        checkSignatures(tTargets, tTargets.mDelegations.mKeys);
        searchDelegations(tTargets.mDelegations, tTargets.mTargets);
    }
    Timestamp tTimestamp;
    (void)parseTimestamp(tFile, &tTimestamp);
    Snapshot tSnapshot;
    (void)parseSnapshot(tFile, &tSnapshot);
    return 0;
}
