#pragma once

#include "internal/PackageValues.h"
#include "packages/Refusals.h"

#include <QtCore/QList>
#include <QtCore/QString>

namespace tarn::vkservice::update {

using LeftOutPackages = QList<vkcore::protocol::LeftOutPackage>;

// What a run has left out, after these packages were refused as well.
LeftOutPackages withRefused(LeftOutPackages pBefore, const QList<packages::Refusal>& pRefused);
// The security fixes that the machine lacks, after it went back behind some.
QList<vkcore::protocol::PackageVersion> withLost(QList<vkcore::protocol::PackageVersion> pPending,
                                                 const QList<packages::Refusal>& pRefused);
// After the refusals of a package were lifted.
LeftOutPackages withoutRefused(LeftOutPackages pBefore, const QString& pPackage);

} // namespace tarn::vkservice::update
