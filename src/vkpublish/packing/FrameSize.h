#pragma once

#include "packing/TarStream.h"

namespace tarn::vkpublish {

// How long the frames of a package are: the smallest of 4, 8, 16, 32 and 64 MiB with which the archive is at
// most 2 % larger than as one frame, measured at level 3; 64 MiB if none is. At level 19 this has come to
// less than 5 %. Small frames make repairs and updates without a delta cheap, and cost the more the more
// alike the files are. Reads the whole folder; needs some 100 MiB.
Result<qint64> chooseFrameSize(TarStream& pStream, const std::vector<FolderEntry>& pEntries);

} // namespace tarn::vkpublish
