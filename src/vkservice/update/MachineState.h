#pragma once

#include "packages/Manifest.h"

namespace tarn::vkservice::update {

class Workplace;
struct RunRequest;

// Identifies the inputs of a plan besides the offers. pLostIndexes: packages whose index is missing.
QByteArray machineState(const RunRequest& pRequest, const Workplace& pWorkplace,
                        const QList<packages::InstalledPackage>& pLostIndexes);

} // namespace tarn::vkservice::update
