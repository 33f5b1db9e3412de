#pragma once

#include "internal/Failure.h"
#include "update/RunRequest.h"

#include <QtCore/QStringList>

namespace tarn::vkservice::update {

// Confines the calling thread to what a run works with, for good: it may write in these folders alone, and
// read them, the files of the configuration, the folders of servers that are one, and what the system's
// libraries need. Does nothing where the kernel can't.
Failure confineRun(const RunRequest& pRequest, const QStringList& pWritable);

} // namespace tarn::vkservice::update
