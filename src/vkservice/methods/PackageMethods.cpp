#include "control/OperatorView.h"
#include "control/VerifyControl.h"
#include "internal/Methods.h"
#include "methods/Group.h"
#include "methods/Methods.h"

using namespace Qt::StringLiterals;

namespace tarn::vkservice::methods {

using namespace vkcore::protocol;
using ipc::MethodTable;
using ipc::Reply;

namespace {

Reply packages(const PackageParts& pParts)
{
    const auto tPackages = pParts.mView.packages();
    return tPackages ? Reply::result(toJson(*tPackages)) : Reply::of(tPackages.failure());
}

Reply state(const PackageParts& pParts)
{
    return Reply::result(toJson(pParts.mVerifications.state()));
}

Reply start(const PackageParts& pParts)
{
    return Reply::of(pParts.mVerifications.start());
}

Reply stop(const PackageParts& pParts)
{
    return Reply::of(pParts.mVerifications.stop(), u"No verification is running."_s);
}

} // namespace

void addPackageMethods(MethodTable& pTable, const PackageParts& pParts)
{
    const Group tGroup(pTable, pParts);
    tGroup.add(method::sGetPackages, &packages);
    tGroup.add(method::sGetVerification, &state);
    tGroup.add(method::sStartVerification, &start);
    tGroup.add(method::sStopVerification, &stop);
}

} // namespace tarn::vkservice::methods
