#pragma once

#include "os/PrivateFolder.h"
#include "packages/TreeFiles.h"
#include "trees/Tree.h"

#include <QtCore/QSet>

namespace tarn::trees {

// The indexes of the installed packages: STATEDIR/indexes/SHA256.zst, named by the hash of their texts. Every
// one of them was checked before it was stored; a damaged one counts as missing.
class IndexStore
{
public:
    IndexStore(os::FileSystem& pFileSystem, const QString& pStateDir);

    Failure open(); // makes the folder
    // False also for one that is damaged: reads all of it.
    bool has(const packages::IndexName& pName) const;
    QString pathOf(const packages::IndexName& pName) const;

    // Stores the index of a package. The text must have this name and must keep all rules of an index; else
    // the failure is of the kind Content. It is on disk after success. The given file stays. *pTree gets what
    // the index names, unless pTree is null: it then takes little memory.
    Failure takePacked(const QString& pFile, const packages::IndexName& pName, const IndexLimits& pLimits,
                       Tree* pTree = nullptr);
    Failure takeText(const QString& pFile, const packages::IndexName& pName, const IndexLimits& pLimits,
                     Tree* pTree = nullptr);

    // Unpacks the text of a stored index to textPath(), which is removed by discardText().
    Failure unpack(const packages::IndexName& pName);
    QString textPath(const packages::IndexName& pName) const;
    void discardText(const packages::IndexName& pName);

    // Removes the indexes that are not among these, and what killed runs left.
    void keepOnly(const QSet<QByteArray>& pTextHashes); // lower-case hex

private:
    static QByteArray fileName(const packages::IndexName& pName, const char* pSuffix);
    QString path(const packages::IndexName& pName, const char* pSuffix) const;
    Failure store(const packages::IndexName& pName, const IndexLimits& pLimits, Tree* pTree);

    os::FileSystem& mFileSystem;
    QString mPath;
    os::PrivateFolder mFolder;
};

} // namespace tarn::trees
