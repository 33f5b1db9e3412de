#pragma once

#include "os/FileSystem.h"

#include <utility>

namespace tarn::os {

// An open descriptor of a FileSystem, closed with the object.
class Descriptor
{
public:
    Descriptor() = default;
    Descriptor(FileSystem& pFileSystem, int pFd) : mFileSystem(&pFileSystem), mFd(pFd) {}
    Descriptor(Descriptor&& pOther) noexcept
        : mFileSystem(pOther.mFileSystem), mFd(std::exchange(pOther.mFd, -1))
    {
    }
    Descriptor& operator=(Descriptor&& pOther) noexcept
    {
        std::swap(mFileSystem, pOther.mFileSystem);
        std::swap(mFd, pOther.mFd);
        return *this;
    }
    ~Descriptor() { close(); }

    bool isOpen() const { return mFd >= 0; }
    int fd() const { return mFd; }
    // The descriptor, which is the caller's to close from then on.
    int release() { return std::exchange(mFd, -1); }
    // The result of the close: a late write error shows only here.
    int close() { return mFd < 0 ? 0 : mFileSystem->close(std::exchange(mFd, -1)); }

private:
    FileSystem* mFileSystem = nullptr;
    int mFd = -1;
};

} // namespace tarn::os
