#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/stat.h>
#include <sys/types.h>

namespace tarn::os {

// Gives files that belong to one user to another one. No link is followed, no other mount is entered, and
// files of further users stay as they are, also where they have another name in a folder of the new owner. It
// can be interrupted at any point and repeated: a folder changes hands after everything in it.
class Ownership
{
public:
    Ownership(uid_t pFrom, uid_t pTo, gid_t pGroup) : mFrom(pFrom), mTo(pTo), mGroup(pGroup) {}

    // The entry of the open folder with all that is below. A missing one counts as done. pPath is its name in
    // messages.
    Failure give(int pFolder, const QByteArray& pName, const QString& pPath) const;
    // The open file or folder alone.
    Failure giveOpen(int pFd, const QString& pPath) const;
    // True if the file in the open folder is one of either user, and was not put there by the new one.
    bool mayVouch(int pFolder, const struct stat& pFile) const;

private:
    bool concerns(uid_t pOwner) const { return pOwner == mFrom || pOwner == mTo; }
    Failure giveContents(int pFolder, quint64 pMount, const QString& pPath) const;
    bool isPlanted(int pFolder, const struct stat& pFile) const;
    Failure giveEntry(int pFolder, const QByteArray& pName, quint64 pMount, const QString& pPath) const;

    uid_t mFrom;
    uid_t mTo;
    gid_t mGroup;
};

} // namespace tarn::os
