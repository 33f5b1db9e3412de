#include "record/PackageLists.h"

#include "record/PackageLine.h"
#include "record/SortedLines.h"

#include "os/Descriptor.h"
#include "os/FileTools.h"

#include <QtCore/QDir>
#include <QtCore/QFile>

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <optional>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr mode_t sFileMode = 0600;
constexpr mode_t sFolderMode = 0700;
constexpr qint64 sMaxLength = 256 * 1024 * 1024;

constexpr const char* sPublished = "published";
constexpr const char* sWithdrawn = "withdrawn";
constexpr const char* sChanges = "changes";
const QByteArray sRemoved("null");

// What makes the published targets those of pNew.
QMap<QByteArray, QByteArray> changesOf(const Packages& pNew)
{
    QMap<QByteArray, QByteArray> tChanges;
    const QMap<QByteArray, QByteArray>& tPublished = pNew.mPublishedTargets.texts();
    const QMap<QByteArray, QByteArray>& tTargets = pNew.mTargets.texts();
    for (auto tIt = tTargets.begin(); tIt != tTargets.end(); ++tIt) {
        const auto tFound = tPublished.find(tIt.key());
        if (tFound == tPublished.end() || *tFound != *tIt) {
            tChanges.insert(tIt.key(), *tIt);
        }
    }
    for (auto tIt = tPublished.begin(); tIt != tPublished.end(); ++tIt) {
        if (!tTargets.contains(tIt.key())) {
            tChanges.insert(tIt.key(), sRemoved);
        }
    }
    return tChanges;
}

} // namespace

PackageLists::PackageLists(os::FileSystem& pFileSystem, const QString& pKeyFolder)
    : mFileSystem(pFileSystem), mFolder(pKeyFolder + "/packages"_L1)
{
}

QString PackageLists::path(const char* pList, const ListFile& pFile) const
{
    return u"%1/%2-%3"_s.arg(mFolder, QLatin1String(pList)).arg(pFile.mNumber);
}

Failure PackageLists::readList(const char* pList, const ListFile& pFile, End pEnd, const QByteArray& pPrefix,
                               const Take& pTake) const
{
    if (pFile.mNumber == 0) {
        return {};
    }
    const QString tPath = path(pList, pFile);
    const Result<QByteArray> tFile = os::readFile(mFileSystem, tPath, sMaxLength);
    if (!tFile) {
        return tFile.failure();
    }
    const auto tDamaged = [&tPath](qint64 pLine) {
        return Failure::content(
            u"%1 is damaged in line %2: restore the key folder from a backup"_s.arg(tPath).arg(pLine));
    };
    qint64 tCount = 0;
    for (qsizetype tAt = 0; tAt < tFile->size(); ++tCount) {
        const qsizetype tEnd = tFile->indexOf('\n', tAt);
        const bool tIsLast = tEnd < 0 || tEnd + 1 == tFile->size();
        const QByteArrayView tText =
            QByteArrayView(*tFile).sliced(tAt, (tEnd < 0 ? tFile->size() : tEnd) - tAt);
        tAt = tEnd < 0 ? tFile->size() : tEnd + 1;
        if (!tIsLast && !pPrefix.isEmpty() && !PackageLine::isNamed(tText, pPrefix)) {
            continue;
        }
        const std::optional<PackageLine> tLine = tEnd < 0 ? std::nullopt : PackageLine::parse(tText);
        if (!tLine && pEnd == End::MayBeTorn && tIsLast && tCount >= pFile.mCount) {
            break;
        }
        if (!tLine) {
            return tDamaged(tCount + 1);
        }
        if (tLine->mName.startsWith(pPrefix)) {
            pTake(tLine->mName, tLine->mText);
        }
    }
    return tCount < pFile.mCount || (pEnd == End::Whole && tCount > pFile.mCount) ? tDamaged(tCount + 1)
                                                                                  : Failure();
}

Failure PackageLists::readSome(const char* pList, const ListFile& pFile, const QByteArray& pPrefix,
                               const Take& pTake) const
{
    if (pFile.mNumber == 0) {
        return {};
    }
    const QString tPath = path(pList, pFile);
    const os::Descriptor tFile(mFileSystem,
                               mFileSystem.open(QFile::encodeName(tPath), O_RDONLY | O_NONBLOCK));
    if (!tFile.isOpen()) {
        const Failure::Kind tKind = errno == ENOENT ? Failure::Kind::NotFound : Failure::Kind::Io;
        return Failure::fromErrno(errno, u"read %1"_s.arg(tPath)).as(tKind);
    }
    return SortedLines(tFile.fd(), tPath).read(pPrefix, pFile.mCount > 0, [&pTake](const PackageLine& pLine) {
        pTake(pLine.mName, pLine.mText);
    });
}

Failure PackageLists::readSorted(const char* pList, const ListFile& pFile, const QByteArray& pPrefix,
                                 const Take& pTake) const
{
    return pPrefix.isEmpty() ? readList(pList, pFile, End::Whole, pPrefix, pTake)
                             : readSome(pList, pFile, pPrefix, pTake);
}

Failure PackageLists::read(Packages* pTo, const QString& pPrefix) const
{
    const QByteArray tPrefix = pPrefix.toUtf8();
    const auto tInto = [](TargetList* pList) {
        return [pList](const QByteArray& pName, const QByteArray& pText) { pList->insertText(pName, pText); };
    };
    if (Failure tFailure =
            readSorted(sPublished, pTo->mPublishedFile, tPrefix, tInto(&pTo->mPublishedTargets))) {
        return tFailure;
    }
    if (Failure tFailure =
            readSorted(sWithdrawn, pTo->mWithdrawnFile, tPrefix, tInto(&pTo->mWithdrawnTargets))) {
        return tFailure;
    }
    pTo->mTargets = pTo->mPublishedTargets;
    return readList(sChanges, pTo->mChangesFile, End::MayBeTorn, tPrefix,
                    [pTo](const QByteArray& pName, const QByteArray& pText) {
                        if (pText == sRemoved) {
                            pTo->mTargets.remove(QString::fromUtf8(pName));
                        } else {
                            pTo->mTargets.insertText(pName, pText);
                        }
                    });
}

Failure PackageLists::makeFolder() const
{
    if (mFileSystem.makeDir(QFile::encodeName(mFolder), sFolderMode) == 0) {
        return os::syncDir(mFileSystem, QFileInfo(mFolder).path());
    }
    return errno == EEXIST ? Failure() : Failure::fromErrno(errno, u"make the folder %1"_s.arg(mFolder));
}

Failure PackageLists::removeOthers(const Packages& pSaved) const
{
    const QStringList tKept{path(sPublished, pSaved.mPublishedFile), path(sWithdrawn, pSaved.mWithdrawnFile),
                            path(sChanges, pSaved.mChangesFile)};
    const QFileInfoList tFiles = QDir(mFolder).entryInfoList(QDir::Files | QDir::Hidden);
    for (const QFileInfo& tFile : tFiles) {
        if (!tKept.contains(tFile.filePath()) &&
            mFileSystem.unlink(QFile::encodeName(tFile.filePath())) != 0 && errno != ENOENT) {
            return Failure::fromErrno(errno, u"remove %1"_s.arg(tFile.filePath()));
        }
    }
    return {};
}

Failure PackageLists::writeList(const char* pList, const QMap<QByteArray, QByteArray>& pTexts, qint64 pNumber,
                                ListFile* pTo) const
{
    QByteArray tText;
    for (auto tIt = pTexts.begin(); tIt != pTexts.end(); ++tIt) {
        const QByteArray tLine = PackageLine{tIt.key(), *tIt}.toBytes();
        if (tLine.isEmpty()) {
            return Failure::content(u"The package %1 can't be recorded: its name or its description has no "
                                    "canonical form"_s.arg(QString::fromUtf8(tIt.key())));
        }
        tText += tLine;
    }
    const ListFile tFile{pNumber, pTexts.size()};
    if (Failure tFailure = os::replaceFile(mFileSystem, path(pList, tFile), tText, sFileMode)) {
        return tFailure;
    }
    *pTo = tFile;
    return {};
}

Failure PackageLists::write(const Packages& pSaved, Packages* pNew) const
{
    const bool tIsNew = pSaved.mChangesFile.mNumber == 0;
    const bool tPublished = pNew->mPublishedTargets != pSaved.mPublishedTargets;
    const bool tWithdrawn = pNew->mWithdrawnTargets != pSaved.mWithdrawnTargets;
    const bool tChanges = tIsNew || tPublished || pNew->mTargets != pSaved.mTargets;
    if (!tWithdrawn && !tChanges) {
        return {};
    }
    if (Failure tFailure = makeFolder()) {
        return tFailure;
    }
    if (Failure tFailure = removeOthers(pSaved)) {
        return tFailure;
    }
    const qint64 tNumber = 1 + std::max({pSaved.mPublishedFile.mNumber, pSaved.mWithdrawnFile.mNumber,
                                         pSaved.mChangesFile.mNumber});
    if (tPublished) {
        if (Failure tFailure =
                writeList(sPublished, pNew->mPublishedTargets.texts(), tNumber, &pNew->mPublishedFile)) {
            return tFailure;
        }
    }
    if (tWithdrawn) {
        if (Failure tFailure =
                writeList(sWithdrawn, pNew->mWithdrawnTargets.texts(), tNumber, &pNew->mWithdrawnFile)) {
            return tFailure;
        }
    }
    return tChanges ? writeList(sChanges, changesOf(*pNew), tNumber, &pNew->mChangesFile) : Failure();
}

Failure PackageLists::append(const ListFile& pChanges, const QString& pName, const QByteArray& pText) const
{
    const QString tPath = path(sChanges, pChanges);
    const QByteArray tLine = PackageLine{pName.toUtf8(), pText.isNull() ? sRemoved : pText}.toBytes();
    Result<QByteArray> tBefore = os::readFile(mFileSystem, tPath, sMaxLength);
    if (!tBefore) {
        return tBefore.failure();
    }
    if (tLine.isEmpty()) {
        return Failure::content(u"The package %1 can't be recorded"_s.arg(pName));
    }
    const qsizetype tLast = tBefore->lastIndexOf('\n', -2) + 1;
    if (!tBefore->isEmpty() && (!tBefore->endsWith('\n') ||
                                !PackageLine::parse(QByteArrayView(*tBefore).sliced(tLast).chopped(1)))) {
        return os::replaceFile(mFileSystem, tPath, tBefore->first(tLast) + tLine, sFileMode);
    }
    os::Descriptor tFile(mFileSystem, mFileSystem.open(QFile::encodeName(tPath), O_WRONLY | O_APPEND));
    if (!tFile.isOpen() ||
        os::writeAll(mFileSystem, tFile.fd(), tLine.constData(), static_cast<size_t>(tLine.size())) != 0 ||
        mFileSystem.fsync(tFile.fd()) != 0 || tFile.close() != 0) {
        return Failure::fromErrno(errno, u"write %1"_s.arg(tPath));
    }
    return {};
}

} // namespace tarn::vkpublish
