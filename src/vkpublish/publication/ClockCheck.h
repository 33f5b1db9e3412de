#pragma once

#include "internal/Failure.h"

#include <QtCore/QDateTime>

namespace tarn::vkpublish {

struct Record;

// A failure if this machine's clock is far from the last publication: what a wrong one signs is valid for too
// long or not at all, and replaced keys stop signing too early.
Failure checkClock(const Record& pRecord, const QDateTime& pClock);

} // namespace tarn::vkpublish
