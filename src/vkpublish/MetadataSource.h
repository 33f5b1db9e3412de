// Where published metadata is read from: a folder, or what a web server makes of one.
#pragma once

#include "tuf/Updater.h"

#include <QtCore/QString>

#include <memory>

namespace tarn::vkpublish {

// The metadata of a repository in a folder.
class FolderFetcher : public tuf::Fetcher
{
public:
    // pFolder: with the metadata itself.
    FolderFetcher(os::FileSystem& pFileSystem, const QString& pFolder);

    Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override;

private:
    os::FileSystem& mFileSystem;
    QString mFolder;
};

// pPlace: the folder of a repository, or its address that begins with "file://" or "https://". pCaFile:
// certificates of the only authorities that an https server may have its own from; empty: the system's. A
// failure for another text. Nothing is asked for yet.
Result<std::unique_ptr<tuf::Fetcher>> openMetadata(const QString& pPlace, const QString& pCaFile);

} // namespace tarn::vkpublish
