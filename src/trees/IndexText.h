#pragma once

#include "internal/Failure.h"
#include "packages/TreeFiles.h"

#include <functional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::trees {

// Which text a packed index has. pSink, if there is one, gets the text in pieces.
Result<packages::IndexName> nameOfIndex(os::FileSystem& pFileSystem, const QString& pPacked,
                                        const std::function<Failure(const QByteArray&)>& pSink = nullptr);

// Writes the text of a packed index to a new file, which only this user may read. Failure of the kind Content
// if the index cannot be unpacked. The text is what was read: its name is in *pTo.
Failure unpackIndex(os::FileSystem& pFileSystem, const QString& pPacked, const QString& pText,
                    packages::IndexName* pTo);

// Packs a text quickly into a new file, which is on disk after success. The file is the reader's only, and
// its bytes are not those that a publisher signs.
Failure packIndexFile(os::FileSystem& pFileSystem, const QString& pText, const QString& pPacked);

} // namespace tarn::trees
