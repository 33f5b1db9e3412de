#pragma once

#include "packages/FolderChain.h"
#include "trees/FrameRuns.h"
#include "trees/InstalledFiles.h"
#include "trees/NewFile.h"
#include "trees/OldFile.h"

#include <functional>

namespace tarn::os {
class AbortFlag;
}

namespace tarn::trees {

// Puts one package together in its staging folder, from whatever is at hand: files of installed packages, a
// delta, parts of its archive. Each file counts only if it has the hash that the index names, so a source
// that is wrong or damaged leaves files missing and does no other harm. For one thread.
//
// A failure of the kind Content is about the source that was given, and another one may help; any other is
// one of this machine, and ends the work.
class TreeBuilder
{
public:
    // pProgress gets the bytes of files that are complete now or were written. pAbort may be null. The
    // others must outlive the object.
    TreeBuilder(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort, const Tree& pTree,
                const QString& pFolder, const std::function<void(qint64)>& pProgress = nullptr);

    // Makes the folder, which must not exist, with all folders, links and empty files.
    Failure start();
    // Clones, links or copies what installed packages have; what is linked is hashed on several cores.
    Failure reuse(const InstalledFiles& pInstalled);
    // Makes files by a delta from the package with its old index.
    Failure applyDelta(const QString& pDelta, qint64 pLength, const InstalledFiles::Package& pOld);
    // Takes files from a fetched part of the archive.
    Failure takeFrames(const QString& pFile, const FrameRun& pRun);

    bool isComplete() const { return mMissing == 0; }
    qint64 missingBytes() const;
    FrameRuns missingFrames() const;

    // Makes the folders read-only, except for the top one, which has to be moved.
    Failure finish();

private:
    friend class DeltaApplication;
    Failure makeEntry(size_t pEntry);
    Failure createFile(size_t pEntry, NewFile* pTo);
    Failure completeFile(size_t pEntry, const Result<bool>& pIsRight);
    Failure makeTwins();
    Failure makeFromAny(size_t pEntry, const InstalledFiles& pInstalled, size_t pFirst = 0);
    Failure makeFrom(size_t pEntry, const OldFile& pOld);
    Failure cloneFile(size_t pEntry, int pOldFd, bool* pIsDecided);
    Failure linkFile(size_t pEntry, const OldFile& pOld, bool* pIsDecided);
    Failure copyFile(size_t pEntry, int pOldFd);
    Failure aborted() const;
    QString label(size_t pEntry) const;
    int enterFolderOf(size_t pEntry, QByteArray* pName);
    void nowThere(size_t pEntry);

    os::FileSystem& mFileSystem;
    const os::AbortFlag* mAbort;
    const Tree& mTree;
    QString mFolder;
    const std::function<void(qint64)> mProgress;
    packages::FolderChain mChain;
    OldFiles mOldFiles;
    std::vector<bool> mIsThere;
    size_t mMissing = 0; // files
    bool mCanClone = true;
    bool mCanLink = true;
};

} // namespace tarn::trees
