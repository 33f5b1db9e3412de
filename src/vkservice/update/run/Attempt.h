#pragma once

#include "update/Plan.h"
#include "update/ServerSession.h"
#include "update/Supply.h"

#include <QtCore/QDateTime>

#include <memory>

namespace tarn::vkservice::update {

// The result of one server for this machine.
struct Attempt
{
    std::unique_ptr<ServerSession> mSession;
    Plan mPlan;
    std::unique_ptr<Supply> mSupply;
    bool mIsPrepared = false;
    QDateTime mInstallFrom; // valid: the packages are prepared and wait for this time
};

} // namespace tarn::vkservice::update
