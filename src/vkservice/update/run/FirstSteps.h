#pragma once

#include "internal/Failure.h"

namespace tarn::vkservice::update {

class RunParts;

// The steps of a run before it asks a server.

// Claims the folders of this installation, and confines the thread to them.
Failure enterWorkplace(RunParts& pParts);
// Brings to an end what an earlier run has left: its trial, its folders, its entries of the install log.
Failure settleEarlierRun(RunParts& pParts);
// They are in a file, which this thread writes as well.
Failure loadRefusals(RunParts& pParts);
// Opens the stores of downloads and indexes.
Failure openStores(RunParts& pParts);
// What keeps a run from leaving more behind: a full disk, or a run that only its manifest records.
Failure checkRoom(RunParts& pParts);

} // namespace tarn::vkservice::update
