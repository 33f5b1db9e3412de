#pragma once

#include "internal/Failure.h"

#include <QtCore/QStringList>

namespace tarn::vkservice::update {

struct RunRequest;

// Permanently confines the calling thread to the folders of a run. It may only write in these folders, and
// read them, the files of the configuration, the folders that serve as servers, and what the system's
// libraries need. Does nothing if the kernel has no support for it.
Failure confineRun(const RunRequest& pRequest, const QStringList& pWritable);

} // namespace tarn::vkservice::update
