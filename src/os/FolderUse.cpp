#include "os/FolderUse.h"

#include "os/ProcFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace tarn::os {

namespace {

dev_t toDevice(const QByteArray& pText, int pBase)
{
    const QByteArrayList tParts = pText.split(':');
    return makedev(tParts.first().toUInt(nullptr, pBase), tParts.last().toUInt(nullptr, pBase));
}

// The mounts of a process may have other numbers than those of this one. 0 for an unknown mount.
dev_t deviceOfMount(const QByteArray& pProcDir, const QByteArray& pMount)
{
    const QByteArrayList tLines = readProcFile(pProcDir + "/mountinfo").split('\n');
    for (const QByteArray& tLine : tLines) {
        const QByteArrayList tFields = tLine.split(' ');
        if (tFields.size() > 2 && tFields.at(0) == pMount) {
            return toDevice(tFields.at(2), 10);
        }
    }
    return 0;
}

dev_t deviceOfMountAt(const QString& pFolder)
{
    struct statx tStat = {};
    const bool tKnown =
        ::statx(AT_FDCWD, QFile::encodeName(pFolder).constData(), 0, STATX_MNT_ID, &tStat) == 0 &&
        (tStat.stx_mask & STATX_MNT_ID) != 0;
    return tKnown ? deviceOfMount("/proc/self", QByteArray::number(qulonglong(tStat.stx_mnt_id))) : 0;
}

// The rest of the line "NAME:\tVALUE".
QByteArray valueOf(const QByteArray& pText, const QByteArray& pName)
{
    const qsizetype tAt = ('\n' + pText).indexOf('\n' + pName + ":\t");
    return tAt < 0 ? QByteArray() : pText.mid(tAt + pName.size() + 2).split('\n').first();
}

} // namespace

FolderUse::FolderUse(const QStringList& pFolders, std::optional<uid_t> pOwner)
    : mFolders(pFolders), mOwner(pOwner)
{
    for (qsizetype tFolder = 0; tFolder < mFolders.size(); ++tFolder) {
        index(tFolder);
    }
}

void FolderUse::index(qsizetype pFolder)
{
    mMounts.append(deviceOfMountAt(mFolders.at(pFolder)));
    QByteArray tPath = QFile::encodeName(mFolders.at(pFolder));
    char* tPaths[] = {tPath.data(), nullptr};
    FTS* tTree = ::fts_open(tPaths, FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, nullptr);
    bool tIsKnown = tTree != nullptr;
    while (FTSENT* tEntry = tTree == nullptr ? nullptr : ::fts_read(tTree)) {
        if (!indexEntry(*tEntry, pFolder)) {
            tIsKnown = false;
            ::fts_set(tTree, tEntry, FTS_SKIP);
        }
    }
    if (tTree != nullptr) {
        ::fts_close(tTree);
    }
    if (!tIsKnown) {
        mUsed.insert(pFolder);
    }
}

// False for one that can't be read, or is none of the owner. The owner comes with the identity, so nobody can
// put another file in its place in between.
bool FolderUse::indexEntry(const FTSENT& pEntry, qsizetype pFolder)
{
    switch (pEntry.fts_info) {
    case FTS_DNR:
    case FTS_ERR:
    case FTS_NS:
        return false;
    case FTS_D:
    case FTS_F:
        break;
    default:
        return pEntry.fts_level != FTS_ROOTLEVEL || pEntry.fts_info == FTS_DP;
    }
    if (mOwner && pEntry.fts_statp->st_uid != *mOwner) {
        return false;
    }
    mFiles.emplace(FileId{pEntry.fts_statp->st_ino, pEntry.fts_statp->st_dev}, pFolder);
    mNames.insert(QByteArray(pEntry.fts_name));
    return true;
}

void FolderUse::look(const QByteArray& pProcDir)
{
    for (const char* tLink : {"/exe", "/cwd", "/root"}) {
        lookAtLink(pProcDir + tLink);
    }
    lookAtOpenFiles(pProcDir);
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

// The links are only for the process's own user and for root; the descriptions are also for whoever may look
// into other processes. Linux 5.14 and later name the inode there.
void FolderUse::lookAtOpenFiles(const QByteArray& pProcDir)
{
    const QByteArrayList tLinks = entries(pProcDir + "/fd");
    for (const QByteArray& tFile : tLinks) {
        lookAtLink(pProcDir + "/fd/" + tFile);
    }
    if (tLinks.isEmpty()) {
        const QByteArrayList tDescriptions = entries(pProcDir + "/fdinfo");
        for (const QByteArray& tFile : tDescriptions) {
            lookAtDescription(pProcDir, tFile);
        }
    }
}

// The device of the mount is not that of stat() on some file systems.
void FolderUse::lookAtDescription(const QByteArray& pProcDir, const QByteArray& pName)
{
    const QByteArray tText = readProcFile(pProcDir + "/fdinfo/" + pName);
    const ino_t tInode = valueOf(tText, "ino").toULongLong();
    auto tFound = mFiles.lower_bound({tInode, 0});
    if (tInode == 0 || tFound == mFiles.end() || tFound->first.mInode != tInode) {
        return;
    }
    const dev_t tDevice = deviceOfMount(pProcDir, valueOf(tText, "mnt_id"));
    for (; tFound != mFiles.end() && tFound->first.mInode == tInode; ++tFound) {
        if (tDevice != 0 && (tFound->first.mDevice == tDevice || mMounts.at(tFound->second) == tDevice)) {
            mUsed.insert(tFound->second);
        }
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
        note(FileId{tInode, toDevice(tFields.at(3), 16)});
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
