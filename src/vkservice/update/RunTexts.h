#pragma once

#include "internal/Failure.h"
#include "internal/PackageValues.h"
#include "values/ResultCode.h"

#include <QtCore/QDateTime>
#include <QtCore/QList>
#include <QtCore/QString>
#include <QtCore/QStringList>

namespace tarn::vkservice::update {

struct Plan;

// The first failure among the plan's packages that a server caused, if any; another server may have the
// missing files.
Failure serversFault(const Plan& pPlan);

// For the result of a run.
// pReceived: bytes that were downloaded; pWhole: bytes of the archives. Says what was saved if it is a tenth
// at least, and how much was left out.
QString successText(int pInstalled, qint64 pReceived, qint64 pWhole,
                    const QList<vkcore::protocol::LeftOutPackage>& pLeftOut = {});
// Packages that wait for a window.
QString preparedText(int pCount, qint64 pReceived, const QDateTime& pFrom);
QString beyondRepairText(const QStringList& pNames);
QString failureText(const Failure& pFailure);
ResultCode failedPackagesCode(const Plan& pPlan);
QString failedPackagesText(const Plan& pPlan);

} // namespace tarn::vkservice::update
