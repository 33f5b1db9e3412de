#pragma once

#include "os/FileId.h"

#include <QtCore/QSet>
#include <QtCore/QStringList>

#include <fts.h>

#include <map>
#include <optional>
#include <set>

namespace tarn::os {

// Which of some folders are in use by a process. Files are compared by device and inode, so other mounts of
// and other paths to a folder count as well.
class FolderUse
{
public:
    // What can't be read counts as used, and with an owner also a folder with a file of another user.
    explicit FolderUse(const QStringList& pFolders, std::optional<uid_t> pOwner = {});

    // Checks a process: its executable, working directory, open and mapped files, and arguments. pProcDir is
    // its folder in /proc. What can't be read of it uses nothing.
    void look(const QByteArray& pProcDir);
    bool isAllUsed() const { return std::ssize(mUsed) == mFolders.size(); }
    // Those found in use so far, in the order of the folders.
    QStringList used() const;

private:
    void index(qsizetype pFolder);
    bool indexEntry(const FTSENT& pEntry, qsizetype pFolder);
    void lookAtLink(const QByteArray& pLink);
    void lookAtOpenFiles(const QByteArray& pProcDir);
    void lookAtDescription(const QByteArray& pProcDir, const QByteArray& pName);
    void lookAtMappings(const QByteArray& pProcDir);
    void lookAtArguments(const QByteArray& pProcDir);
    void note(const std::optional<FileId>& pFile);

    QStringList mFolders;
    std::optional<uid_t> mOwner;
    QList<dev_t> mMounts;               // for each folder, the device that its mount has in mountinfo
    std::map<FileId, qsizetype> mFiles; // to the place of their folder in mFolders
    QSet<QByteArray> mNames;            // last parts of their paths
    std::set<qsizetype> mUsed;
};

} // namespace tarn::os
