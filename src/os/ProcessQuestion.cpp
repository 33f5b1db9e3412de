#include "os/ProcessQuestion.h"

#include <QtCore/QFile>

#include <algorithm>
#include <limits>

namespace tarn::os {

namespace {

const QByteArray sRunning("running");
const QByteArray sInUse("inUse");
constexpr qsizetype sMaxFields = 32768;
constexpr qsizetype sMaxName = 64; // more than the kernel has

void add(QByteArray* pTo, const QByteArray& pField)
{
    *pTo += pField;
    *pTo += '\0';
}

void addPaths(QByteArray* pTo, char pMark, const QStringList& pPaths)
{
    for (const QString& tPath : pPaths) {
        add(pTo, pMark + QFile::encodeName(tPath));
    }
}

// None without a zero byte at the end, or with too many of them.
std::optional<QByteArrayList> fieldsOf(const QByteArray& pBytes)
{
    if (pBytes.isEmpty()) {
        return QByteArrayList();
    }
    if (!pBytes.endsWith('\0') || pBytes.count('\0') > sMaxFields) {
        return std::nullopt;
    }
    return pBytes.chopped(1).split('\0');
}

bool isAsked(const QString& pFile, const ProgramSearch& pAsked)
{
    return pAsked.mScripts.contains(pFile) ||
           std::any_of(pAsked.mFolders.begin(), pAsked.mFolders.end(),
                       [&pFile](const QString& pFolder) { return pFile.startsWith(pFolder + u'/'); });
}

QStringList* pathsOf(ProgramSearch& pSearch, char pMark)
{
    return pMark == 'F'   ? &pSearch.mFolders
           : pMark == 'S' ? &pSearch.mScripts
           : pMark == 'P' ? &pSearch.mPlaces
                          : nullptr;
}

} // namespace

QByteArray ProcessQuestion::toBytes() const
{
    QByteArray tBytes;
    add(&tBytes, mKind == Kind::Running ? sRunning : sInUse);
    addPaths(&tBytes, 'F', mSearch.mFolders);
    addPaths(&tBytes, 'S', mSearch.mScripts);
    addPaths(&tBytes, 'P', mSearch.mPlaces);
    return tBytes;
}

std::optional<ProcessQuestion> ProcessQuestion::fromBytes(const QByteArray& pBytes)
{
    const std::optional<QByteArrayList> tFields = fieldsOf(pBytes);
    if (!tFields || tFields->isEmpty() || (tFields->first() != sRunning && tFields->first() != sInUse)) {
        return std::nullopt;
    }
    ProcessQuestion tQuestion;
    tQuestion.mKind = tFields->first() == sRunning ? Kind::Running : Kind::InUse;
    for (qsizetype i = 1; i < tFields->size(); ++i) {
        const QByteArray& tField = tFields->at(i);
        QStringList* tPaths =
            tField.size() > 1 && tField.at(1) == '/' ? pathsOf(tQuestion.mSearch, tField.at(0)) : nullptr;
        if (tPaths == nullptr) {
            return std::nullopt;
        }
        tPaths->append(QFile::decodeName(tField.mid(1)));
    }
    return tQuestion;
}

QByteArray toBytes(const QList<Process>& pProcesses)
{
    QByteArray tBytes;
    for (const Process& tProcess : pProcesses.first(qMin(pProcesses.size(), sMaxProcesses))) {
        add(&tBytes, QByteArray::number(tProcess.mPid));
        add(&tBytes, tProcess.mName.toUtf8());
        add(&tBytes, QFile::encodeName(tProcess.mFile));
    }
    return tBytes;
}

QByteArray toBytes(const QStringList& pFolders)
{
    QByteArray tBytes;
    for (const QString& tFolder : pFolders) {
        add(&tBytes, QFile::encodeName(tFolder));
    }
    return tBytes;
}

std::optional<QList<Process>> processesFromBytes(const QByteArray& pBytes, const ProgramSearch& pAsked)
{
    const std::optional<QByteArrayList> tFields = fieldsOf(pBytes);
    if (!tFields || tFields->size() % 3 != 0 || tFields->size() > sMaxProcesses * 3) {
        return std::nullopt;
    }
    QList<Process> tProcesses;
    for (qsizetype i = 0; i < tFields->size(); i += 3) {
        const Process tProcess{tFields->at(i).toInt(), QString::fromUtf8(tFields->at(i + 1)),
                               QFile::decodeName(tFields->at(i + 2))};
        if (tProcess.mPid <= 0 || tFields->at(i + 1).size() > sMaxName || !isAsked(tProcess.mFile, pAsked)) {
            return std::nullopt;
        }
        tProcesses.append(tProcess);
    }
    return tProcesses;
}

std::optional<QStringList> foldersFromBytes(const QByteArray& pBytes, const QStringList& pAsked)
{
    const std::optional<QByteArrayList> tFields = fieldsOf(pBytes);
    if (!tFields) {
        return std::nullopt;
    }
    QStringList tFolders;
    for (const QByteArray& tField : *tFields) {
        tFolders.append(QFile::decodeName(tField));
        if (!pAsked.contains(tFolders.last())) {
            return std::nullopt;
        }
    }
    return tFolders;
}

} // namespace tarn::os
