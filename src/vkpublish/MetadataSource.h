// The source of published metadata: a folder, or a web server.
#pragma once

#include "tuf/Updater.h"

#include <QtCore/QString>

#include <memory>

namespace tarn::vkpublish {

// The metadata of a repository in a folder.
class FolderFetcher : public tuf::Fetcher
{
public:
    // pFolder: the folder of the metadata itself.
    FolderFetcher(os::FileSystem& pFileSystem, const QString& pFolder);

    Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override;

private:
    os::FileSystem& mFileSystem;
    QString mFolder;
};

// pPlace: the folder of a repository, or an address with "file://" or "https://". pCaFile: the only
// certificate authorities to trust for an https server; empty: those of the system. A failure for any other
// text. Does not fetch anything yet.
Result<std::unique_ptr<tuf::Fetcher>> openMetadata(const QString& pPlace, const QString& pCaFile);

} // namespace tarn::vkpublish
