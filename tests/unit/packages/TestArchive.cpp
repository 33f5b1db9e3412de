#include "TestArchive.h"

#include <QtCore/QDir>
#include <QtCore/QDirIterator>
#include <QtCore/QFile>

#include <archive.h>
#include <archive_entry.h>
#include <limits.h>
#include <unistd.h>

namespace {

void describe(archive_entry* pEntry, const TestEntry& pFrom)
{
    archive_entry_set_pathname(pEntry, pFrom.mPath.constData());
    archive_entry_set_mode(pEntry, pFrom.mMode);
    archive_entry_set_mtime(pEntry, 1, 0);
    archive_entry_set_size(pEntry, 0);
    if (pFrom.mHardLink) {
        archive_entry_set_hardlink(pEntry, pFrom.mContent.constData());
    } else if (S_ISLNK(pFrom.mMode)) {
        archive_entry_set_symlink(pEntry, pFrom.mContent.constData());
    } else if (S_ISREG(pFrom.mMode)) {
        archive_entry_set_size(pEntry, pFrom.mContent.size());
    }
    for (const auto& [tOffset, tLength] : pFrom.mHoles) {
        archive_entry_sparse_add_entry(pEntry, tOffset, tLength);
    }
}

QByteArray pack(const QList<TestEntry>& pEntries, int (*pAddFilter)(archive*))
{
    size_t tSize = 1024 * 1024;
    for (const TestEntry& tEntry : pEntries) {
        tSize += static_cast<size_t>(tEntry.mContent.size()) + 4096;
    }
    QByteArray tBytes(static_cast<qsizetype>(tSize), '\0');
    size_t tUsed = 0;
    archive* tArchive = archive_write_new();
    archive_write_set_format_pax_restricted(tArchive);
    pAddFilter(tArchive);
    archive_write_open_memory(tArchive, tBytes.data(), tSize, &tUsed);
    for (const TestEntry& tFrom : pEntries) {
        archive_entry* tEntry = archive_entry_new();
        describe(tEntry, tFrom);
        archive_write_header(tArchive, tEntry);
        if (archive_entry_size(tEntry) > 0) {
            archive_write_data(tArchive, tFrom.mContent.constData(),
                               static_cast<size_t>(tFrom.mContent.size()));
        }
        archive_entry_free(tEntry);
    }
    archive_write_close(tArchive);
    archive_write_free(tArchive);
    tBytes.resize(static_cast<qsizetype>(tUsed));
    return tBytes;
}

} // namespace

QByteArray makeArchive(const QList<TestEntry>& pEntries)
{
    return pack(pEntries, archive_write_add_filter_zstd);
}

QByteArray makeTar(const QList<TestEntry>& pEntries)
{
    return pack(pEntries, archive_write_add_filter_none);
}

QMap<QString, QByteArray> readTree(const QString& pFolder)
{
    QMap<QString, QByteArray> tTree;
    QDirIterator tIt(pFolder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                     QDirIterator::Subdirectories);
    while (tIt.hasNext()) {
        const QString tPath = tIt.next();
        const QString tBelow = QDir(pFolder).relativeFilePath(tPath);
        char tTarget[PATH_MAX];
        const ssize_t tLength = ::readlink(QFile::encodeName(tPath).constData(), tTarget, sizeof tTarget);
        if (tLength >= 0) {
            tTree.insert(tBelow, "-> " + QByteArray(tTarget, tLength));
        } else if (QFile tFile(tPath); tIt.fileInfo().isFile() && tFile.open(QIODevice::ReadOnly)) {
            tTree.insert(tBelow, tFile.readAll());
        }
    }
    return tTree;
}
