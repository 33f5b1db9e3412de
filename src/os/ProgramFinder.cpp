#include "os/ProgramFinder.h"

#include "os/ProcFiles.h"

#include <algorithm>

namespace tarn::os {

namespace {

QByteArray withSlash(const QString& pFolder)
{
    const QByteArray tPath = QFile::encodeName(pFolder);
    return tPath.endsWith('/') ? tPath : tPath + '/';
}

bool isBelow(const QByteArrayList& pFolders, const QByteArray& pPath)
{
    return std::any_of(pFolders.begin(), pFolders.end(),
                       [&pPath](const QByteArray& pFolder) { return pPath.startsWith(pFolder); });
}

} // namespace

ProgramFinder::ProgramFinder(const ProgramSearch& pSearch, std::optional<uid_t> pOwner)
    : mPlaces{"/usr/", "/bin/"}
{
    struct stat tStat;
    for (const QString& tFolder : pSearch.mFolders) {
        if (!pOwner || (::lstat(QFile::encodeName(tFolder).constData(), &tStat) == 0 &&
                        S_ISDIR(tStat.st_mode) && tStat.st_uid == *pOwner)) {
            mFolders.append(withSlash(tFolder));
        }
    }
    for (const QString& tPlace : pSearch.mPlaces) {
        if (!pOwner || (::stat(QFile::encodeName(tPlace).constData(), &tStat) == 0 &&
                        (tStat.st_uid == *pOwner || tStat.st_uid == 0))) {
            mPlaces.append(withSlash(tPlace));
        }
    }
    for (const QString& tScript : pSearch.mScripts) {
        if (::stat(QFile::encodeName(tScript).constData(), &tStat) == 0 &&
            (!pOwner || tStat.st_uid == *pOwner)) {
            mScripts.emplace(FileId{tStat.st_ino, tStat.st_dev}, tScript);
        }
    }
}

std::optional<Process> ProgramFinder::look(const QByteArray& pProcDir) const
{
    QString tFile = scriptOf(pProcDir);
    tFile = tFile.isEmpty() ? executableOf(pProcDir) : tFile;
    if (tFile.isEmpty()) {
        return std::nullopt;
    }
    return Process{pProcDir.mid(pProcDir.lastIndexOf('/') + 1).toInt(),
                   QString::fromLocal8Bit(readProcFile(pProcDir + "/comm").trimmed()), tFile};
}

// An interpreter runs a script that its arguments name.
QString ProgramFinder::scriptOf(const QByteArray& pProcDir) const
{
    if (mScripts.empty()) {
        return {};
    }
    const QByteArrayList tArguments = argumentPaths(pProcDir);
    for (const QByteArray& tPath : tArguments) {
        const auto tFile =
            isBelow(mPlaces, tPath) && !tPath.contains("/../") ? fileIdAt(tPath) : std::nullopt;
        if (const auto tFound = tFile ? mScripts.find(*tFile) : mScripts.end(); tFound != mScripts.end()) {
            return tFound->second;
        }
    }
    return {};
}

QString ProgramFinder::executableOf(const QByteArray& pProcDir) const
{
    const QByteArray tExecutable = linkTarget(pProcDir + "/exe");
    return isBelow(mFolders, tExecutable) ? QFile::decodeName(tExecutable) : QString();
}

} // namespace tarn::os
