#pragma once

#include "os/ProcessList.h"

#include <QtCore/QByteArray>

#include <optional>

// What goes to vkprocesses and comes back. Both ends may be in the hands of somebody else: what is not
// exactly of this form is nothing. A message is a list of fields, each with a zero byte at its end; numbers
// are decimal.
namespace tarn::os {

// Its first field is "running" or "inUse". Those of the folders begin with F, of the scripts with S, of the
// places with P, and go on with an absolute path.
struct ProcessQuestion
{
    enum class Kind
    {
        Running,
        InUse, // which of the folders
    };

    Kind mKind = Kind::Running;
    ProgramSearch mSearch;

    QByteArray toBytes() const;
    static std::optional<ProcessQuestion> fromBytes(const QByteArray& pBytes);
};

// Three fields for each process: its id, name and file. At most sMaxProcesses of them.
inline constexpr qsizetype sMaxProcesses = 1000;
QByteArray toBytes(const QList<Process>& pProcesses);
// The fields are the folders in use.
QByteArray toBytes(const QStringList& pFolders);
// A file is one that was asked for, or in a folder that was.
std::optional<QList<Process>> processesFromBytes(const QByteArray& pBytes, const ProgramSearch& pAsked);
std::optional<QStringList> foldersFromBytes(const QByteArray& pBytes, const QStringList& pAsked);

} // namespace tarn::os
