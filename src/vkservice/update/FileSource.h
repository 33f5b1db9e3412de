#pragma once

#include "update/Source.h"

namespace tarn::vkservice::update {

// A server that is a local or mounted folder.
class FileSource : public Source
{
public:
    FileSource(os::FileSystem& pFileSystem, const QString& pFolder);

    void run(const QList<Transfer*>& pTransfers, const os::AbortFlag& pAbort) override;

private:
    Failure copy(const QString& pPath, const Transfer& pTransfer, const os::AbortFlag& pAbort);
    Failure openFailed(int pErrno, const QString& pPath) const;

    os::FileSystem& mFileSystem;
    QString mFolder;
};

} // namespace tarn::vkservice::update
