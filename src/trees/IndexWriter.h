#pragma once

#include "trees/IndexEntry.h"

#include <vector>

namespace tarn::trees {

// The text of an index: its header, the frames, the entries, one line each. The same index always makes the
// same bytes.
QByteArray indexText(const std::vector<Frame>& pFrames, const std::vector<IndexEntry>& pEntries);

// The text as it is published.
QByteArray packIndex(const QByteArray& pText);

} // namespace tarn::trees
