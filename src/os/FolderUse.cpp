#include "os/FolderUse.h"

#include "os/ProcFiles.h"

#include <fts.h>
#include <sys/sysmacros.h>

namespace tarn::os {

FolderUse::FolderUse(const QStringList& pFolders) : mFolders(pFolders)
{
    for (qsizetype tFolder = 0; tFolder < mFolders.size(); ++tFolder) {
        index(tFolder);
    }
}

void FolderUse::index(qsizetype pFolder)
{
    QByteArray tPath = QFile::encodeName(mFolders.at(pFolder));
    char* tPaths[] = {tPath.data(), nullptr};
    FTS* tTree = ::fts_open(tPaths, FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, nullptr);
    while (const FTSENT* tEntry = tTree == nullptr ? nullptr : ::fts_read(tTree)) {
        if (tEntry->fts_info == FTS_D || tEntry->fts_info == FTS_F) {
            mFiles.emplace(FileId{tEntry->fts_statp->st_ino, tEntry->fts_statp->st_dev}, pFolder);
            mNames.insert(QByteArray(tEntry->fts_name));
        }
    }
    if (tTree != nullptr) {
        ::fts_close(tTree);
    }
}

void FolderUse::look(const QByteArray& pProcDir)
{
    for (const char* tLink : {"/exe", "/cwd", "/root"}) {
        lookAtLink(pProcDir + tLink);
    }
    const QByteArrayList tOpen = entries(pProcDir + "/fd");
    for (const QByteArray& tFile : tOpen) {
        lookAtLink(pProcDir + "/fd/" + tFile);
    }
    lookAtMappings(pProcDir);
    lookAtArguments(pProcDir);
}

// A link is followed only if its name matches, because the file may be on a disk or a server that doesn't
// answer.
void FolderUse::lookAtLink(const QByteArray& pLink)
{
    const QByteArray tTarget = linkTarget(pLink);
    if (mNames.contains(tTarget.mid(tTarget.lastIndexOf('/') + 1))) {
        note(fileIdAt(pLink));
    }
}

// A line is "FROM-TO RIGHTS OFFSET MAJOR:MINOR INODE PATH". On some file systems its device differs from that
// of stat(): if only the inode matches, the path decides.
void FolderUse::lookAtMappings(const QByteArray& pProcDir)
{
    const QByteArrayList tLines = readProcFile(pProcDir + "/maps").split('\n');
    for (const QByteArray& tLine : tLines) {
        const QByteArrayList tFields = tLine.left(tLine.indexOf('/')).simplified().split(' ');
        if (tFields.size() != 5) {
            continue;
        }
        const ino_t tInode = tFields.at(4).toULongLong();
        const auto tFound = mFiles.lower_bound({tInode, 0});
        if (tFound == mFiles.end() || tFound->first.mInode != tInode) {
            continue;
        }
        const QByteArrayList tDevice = tFields.at(3).split(':');
        note(
            FileId{tInode, makedev(tDevice.first().toUInt(nullptr, 16), tDevice.last().toUInt(nullptr, 16))});
        note(fileIdAt(pProcDir + "/root" + tLine.mid(tLine.indexOf('/'))));
    }
}

// An interpreter may need the folder of a script without having any of its files open.
void FolderUse::lookAtArguments(const QByteArray& pProcDir)
{
    const QByteArrayList tArguments = argumentPaths(pProcDir);
    for (const QByteArray& tArgument : tArguments) {
        for (qsizetype tFolder = 0; tFolder < mFolders.size(); ++tFolder) {
            if (tArgument.startsWith(QFile::encodeName(mFolders.at(tFolder)) + '/')) {
                mUsed.insert(tFolder);
            }
        }
    }
}

void FolderUse::note(const std::optional<FileId>& pFile)
{
    if (const auto tFound = pFile ? mFiles.find(*pFile) : mFiles.end(); tFound != mFiles.end()) {
        mUsed.insert(tFound->second);
    }
}

QStringList FolderUse::used() const
{
    QStringList tFolders;
    for (const qsizetype tFolder : mUsed) {
        tFolders.append(mFolders.at(tFolder));
    }
    return tFolders;
}

} // namespace tarn::os
