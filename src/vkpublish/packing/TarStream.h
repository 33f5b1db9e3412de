#pragma once

#include "packing/FolderScan.h"

#include <QtCore/QByteArrayView>
#include <QtCore/QDateTime>

#include <functional>

namespace tarn::os {
class FileSystem;
}

namespace tarn::vkpublish {

// Who takes the tar stream of a folder. A failure ends the stream.
class TarSink
{
public:
    virtual ~TarSink() = default;

    // An entry of so many bytes follows: its header, its content and what fills it up.
    virtual Failure beginEntry(qint64 pLength) = 0;
    virtual Failure write(QByteArrayView pBytes) = 0;
    // The bytes between these two calls are the content of a file.
    virtual void beginContent(const FolderEntry& pEntry) = 0;
    virtual void endContent() = 0;
};

// Makes the tar stream of a folder's entries. It only depends on their names, contents, permissions and
// times: owner and group are 0, only the owner has write permission, times are whole seconds and not later
// than the latest one.
class TarStream
{
public:
    TarStream(os::FileSystem& pFileSystem, const QString& pFolder, const QDateTime& pLatest);

    Failure run(const std::vector<FolderEntry>& pEntries, TarSink* pTo);

    qint64 timeOf(const FolderEntry& pEntry) const;
    static bool isExecutable(const FolderEntry& pEntry);

private:
    os::FileSystem& mFileSystem;
    QByteArray mFolder;
    qint64 mLatest; // seconds since 1970
};

} // namespace tarn::vkpublish
