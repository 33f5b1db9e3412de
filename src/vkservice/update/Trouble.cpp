#include "update/Trouble.h"

namespace tarn::vkservice::update {

bool Trouble::isServersFault() const
{
    return mKind == Kind::Unreachable || mKind == Kind::NotFound || mKind == Kind::Untrusted ||
           mKind == Kind::OutOfDate || mKind == Kind::Expired;
}

bool Trouble::mayAskAnotherServer() const
{
    return isServersFault() || mKind == Kind::NoServer;
}

ResultCode Trouble::code() const
{
    switch (mKind) {
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
    case Kind::Failed:
        return ResultInstallFailed;
    case Kind::Damaged:
        return ResultStoreDamaged;
    case Kind::AppsRunning:
    case Kind::Person:
        return ResultManualIntervention;
    case Kind::Canceled:
        return ResultAborted;
    }
    return ResultInstallFailed;
}

Trouble Trouble::from(const os::Failure& pFailure)
{
    switch (pFailure.mKind) {
    case os::Failure::Kind::None:
        return {};
    case os::Failure::Kind::NoSpace:
        return {Kind::NoSpace, pFailure.mText};
    case os::Failure::Kind::Io:
    case os::Failure::Kind::Content:
        return {Kind::Failed, pFailure.mText};
    case os::Failure::Kind::Person:
        return {Kind::Person, pFailure.mText};
    case os::Failure::Kind::Canceled:
        return canceled();
    }
    return {Kind::Failed, pFailure.mText};
}

Trouble Trouble::from(const tuf::Error& pError)
{
    switch (pError.mKind) {
    case tuf::ErrorKind::None:
        return {};
    case tuf::ErrorKind::Unreachable:
        return {Kind::Unreachable, pError.mText};
    case tuf::ErrorKind::NotFound:
        return {Kind::NotFound, pError.mText};
    case tuf::ErrorKind::Untrusted:
        return {Kind::Untrusted, pError.mText};
    case tuf::ErrorKind::OutOfDate:
        return {Kind::OutOfDate, pError.mText};
    case tuf::ErrorKind::Expired:
        return {Kind::Expired, pError.mText};
    case tuf::ErrorKind::Local:
        return {Kind::Damaged, pError.mText};
    case tuf::ErrorKind::Canceled:
        return canceled();
    }
    return {Kind::Failed, pError.mText};
}

} // namespace tarn::vkservice::update
