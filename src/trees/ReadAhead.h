#pragma once

#include "os/HelperThreads.h"
#include "trees/InstalledFiles.h"
#include "trees/OldFile.h"

#include <array>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <span>

namespace tarn::trees {

// Whether an installed file can be linked in place of the new one, if it has its content.
bool canBeLinked(const struct stat& pOld, const Tree::Node& pNew);

// Opens and hashes installed files for new ones, on several cores and some files ahead of the thread that
// takes them, which works as well while it has to wait. Some tens of files are open at a time. Others may
// read the tree and the installed files meanwhile.
class ReadAhead
{
public:
    // For these entries of the tree, in their order. pAbort may be null.
    ReadAhead(os::FileSystem& pFileSystem, const os::AbortFlag* pAbort, const Tree& pTree,
              const InstalledFiles& pInstalled, std::span<const size_t> pEntries);
    ~ReadAhead(); // waits for the files that are being read
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // The first file that should have the content of the next entry; not open if none has. It is hashed if it
    // has the right size and can be linked.
    OldFile take();

private:
    struct Slot
    {
        OldFile mFile;
        bool mIsReady = false;
    };
    static constexpr size_t sMostAhead = 32; // files

    void work();
    bool readNext(std::unique_lock<std::mutex>* pLock, OldFiles* pFiles);
    OldFile read(size_t pEntry, OldFiles* pFiles) const;
    Slot& slot(size_t pNumber) { return mSlots[pNumber % sMostAhead]; }

    os::FileSystem& mFileSystem;
    const os::AbortFlag* mAbort;
    const Tree& mTree;
    const InstalledFiles& mInstalled;
    const std::span<const size_t> mEntries;
    OldFiles mFiles; // of the thread that takes

    std::mutex mMutex; // guards what follows
    std::condition_variable mChanged;
    std::array<Slot, sMostAhead> mSlots;
    size_t mBegun = 0; // entries
    size_t mTaken = 0;
    bool mEnds = false;

    std::optional<os::HelperThreads> mThreads;
};

} // namespace tarn::trees
