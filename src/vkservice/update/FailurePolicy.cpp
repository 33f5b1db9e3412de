#include "update/FailurePolicy.h"

namespace tarn::vkservice::update {

using Kind = Failure::Kind;

bool isServersFault(const Failure& pFailure)
{
    return pFailure.mKind == Kind::Unreachable || pFailure.mKind == Kind::NotFound ||
           pFailure.mKind == Kind::Untrusted || pFailure.mKind == Kind::OutOfDate ||
           pFailure.mKind == Kind::Expired;
}

bool mayAskAnotherServer(const Failure& pFailure)
{
    return isServersFault(pFailure) || pFailure.mKind == Kind::NoServer;
}

ResultCode resultCode(const Failure& pFailure)
{
    switch (pFailure.mKind) {
    case Kind::None:
        return ResultSuccess;
    case Kind::Unreachable:
        return ResultUnreachable;
    case Kind::Untrusted:
    case Kind::OutOfDate:
    case Kind::Expired:
        return ResultVerificationFailed;
    case Kind::NoServer:
        return ResultNoServer;
    case Kind::NoSpace:
        return ResultNoSpace;
    case Kind::NotFound:
    case Kind::Io:
    case Kind::Content:
        return ResultInstallFailed;
    case Kind::Damaged:
        return ResultStoreDamaged;
    case Kind::CheckFailed:
        return ResultCheckFailed;
    case Kind::AppsRunning:
    case Kind::Person:
        return ResultManualIntervention;
    case Kind::Canceled:
        return ResultAborted;
    }
    return ResultInstallFailed;
}

} // namespace tarn::vkservice::update
