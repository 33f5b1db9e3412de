#pragma once

#include "internal/Failure.h"
#include "values/ResultCode.h"

// The consequences of a failure for a run with several servers.
namespace tarn::vkservice::update {

// True if the server caused the failure.
bool isServersFault(const Failure& pFailure);
// True if another server may succeed.
bool mayAskAnotherServer(const Failure& pFailure);
ResultCode resultCode(const Failure& pFailure);

} // namespace tarn::vkservice::update
