#pragma once

#include "os/FileId.h"
#include "os/ProcessList.h"

#include <QtCore/QByteArrayList>

#include <map>
#include <optional>

namespace tarn::os {

// Finds the processes that run one of some programs.
class ProgramFinder
{
public:
    // With an owner: folders and scripts of other users are left out, and places of others than the owner and
    // root.
    ProgramFinder(const ProgramSearch& pSearch, std::optional<uid_t> pOwner);

    // pProcDir is the folder of a process in /proc.
    std::optional<Process> look(const QByteArray& pProcDir) const;

private:
    QString scriptOf(const QByteArray& pProcDir) const;
    QString executableOf(const QByteArray& pProcDir) const;

    QByteArrayList mFolders; // these and the places end with a slash
    QByteArrayList mPlaces;
    std::map<FileId, QString> mScripts;
};

} // namespace tarn::os
