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

// Where a repository is.
struct Place
{
    bool mIsWeb = false;
    QString mPath; // the address without a slash at its end, or the absolute path of the folder
};

// pText: the folder of a repository, or an address with "file://" or "https://". A failure for any other
// text.
Result<Place> readPlace(const QString& pText);

// The metadata of the repository there. pCaFile: the only certificate authorities to trust for an https
// server; empty: those of the system. Does not fetch anything yet.
Result<std::unique_ptr<tuf::Fetcher>> openMetadata(const QString& pPlace, const QString& pCaFile);

} // namespace tarn::vkpublish
