#pragma once

#include "internal/Failure.h"
#include "values/ResultCode.h"

// What a failure means for a run that may ask several servers.
namespace tarn::vkservice::update {

// True for what the server is to blame for.
bool isServersFault(const Failure& pFailure);
// True where another server may do better.
bool mayAskAnotherServer(const Failure& pFailure);
ResultCode resultCode(const Failure& pFailure);

} // namespace tarn::vkservice::update
