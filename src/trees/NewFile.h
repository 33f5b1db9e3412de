#pragma once

#include "os/Descriptor.h"
#include "trees/Tree.h"
#include "tuf/Hashes.h"

#include <optional>

namespace tarn::trees {

// A file of a package while it is written to the staging folder. It stays only if its bytes have the hash
// that the index names.
class NewFile
{
public:
    NewFile(os::FileSystem& pFileSystem, const QString& pLabel) : mFileSystem(pFileSystem), mLabel(pLabel) {}

    // Creates it in an open folder.
    Failure create(int pDirFd, const QByteArray& pName);
    bool isOpen() const { return mFile.isOpen(); }
    int fd() const { return mFile.fd(); }
    Failure write(QByteArrayView pData);
    // Whether the file is the wanted one. It then has its mode and time and is closed; else it is removed.
    Result<bool> finish(const Tree::Node& pWanted);
    // The same for one that was not written by this object, and has this hash.
    Result<bool> finish(const tuf::Hash& pHash, const Tree::Node& pWanted);
    Failure discard(); // removes it

private:
    Failure failure() const;

    os::FileSystem& mFileSystem;
    QString mLabel; // in messages
    os::Descriptor mDir;
    QByteArray mName;
    os::Descriptor mFile;
    std::optional<tuf::Hasher> mHasher;
};

} // namespace tarn::trees
