#pragma once

#include "mirror/WholeState.h"

namespace tarn::vkpublish {

// All roots from pFirst to pLast, each signed by the one before, so that a machine that was off for long can
// follow them. Those that are in the folder pMetadata are not fetched.
Result<QList<MetadataFile>> readRootChain(os::FileSystem& pFileSystem, const QString& pMetadata,
                                          tuf::Fetcher& pFrom, const QByteArray& pFirst,
                                          const QByteArray& pLast);

} // namespace tarn::vkpublish
