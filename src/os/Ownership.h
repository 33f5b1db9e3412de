#pragma once

#include "internal/Failure.h"

#include <QtCore/QByteArray>
#include <QtCore/QString>

#include <sys/types.h>

namespace tarn::os {

// Gives files that belong to one user to another one. No link is followed, no other disk is entered, and
// files of further users stay as they are. It can be interrupted at any point and repeated: a folder changes
// hands after everything in it.
class Ownership
{
public:
    Ownership(uid_t pFrom, uid_t pTo, gid_t pGroup) : mFrom(pFrom), mTo(pTo), mGroup(pGroup) {}

    // The entry of the open folder with all that is below. A missing one counts as done. pPath is its name in
    // messages.
    Failure give(int pFolder, const QByteArray& pName, const QString& pPath) const;
    // The open file or folder alone.
    Failure giveOpen(int pFd, const QString& pPath) const;
    // True for a file of either user.
    bool concerns(uid_t pOwner) const { return pOwner == mFrom || pOwner == mTo; }

private:
    Failure giveContents(int pFolder, dev_t pDevice, const QString& pPath) const;
    Failure giveEntry(int pFolder, const QByteArray& pName, dev_t pDevice, const QString& pPath) const;

    uid_t mFrom;
    uid_t mTo;
    gid_t mGroup;
};

} // namespace tarn::os
