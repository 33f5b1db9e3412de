#pragma once

#include "trees/IndexReader.h"

#include <functional>
#include <vector>

namespace tarn::os {
class AbortFlag;
}

namespace tarn::trees {

enum class TreeFault
{
    Missing,
    Extra, // the index does not name it
    Kind,  // such as a link in place of a folder; what is below it is not looked at
    Mode,  // or the owner
    Size,
    Content,
    Target, // of a link
    Unreadable,
};

// What is wrong with one entry of a package's folder.
struct TreeFinding
{
    QByteArray mPath; // in the package; empty for its folder itself
    TreeFault mFault = TreeFault::Missing;

    bool operator==(const TreeFinding&) const = default;
};

struct TreeReport
{
    static constexpr size_t sMaxFindings = 100;

    std::vector<TreeFinding> mFindings; // the first ones
    qint64 mFaults = 0;                 // how many there are in all
    qint64 mFiles = 0;                  // that were read
    qint64 mBytes = 0;                  // of them
};

// Compares the folder of a package with its index, every byte of it; times are not compared. Follows no
// links. A failure only for an index that can't be used, and after a stop request (pAbort may be null). Needs
// some MiB, and the names in the folders above an entry. pProgress gets the bytes since its last call.
Result<TreeReport> checkTree(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort, const QString& pFolder,
                             const QString& pIndexFile, const IndexLimits& pLimits,
                             const std::function<void(qint64)>& pProgress = nullptr);

} // namespace tarn::trees
