#include "packages/GenerationReader.h"

#include "os/FileTools.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::packages {

namespace {

constexpr qint64 sMaxManifestSize = 64 * 1024 * 1024;

bool isMissing(const QString& pPath)
{
    struct stat tStat;
    return ::lstat(QFile::encodeName(pPath).constData(), &tStat) != 0 && errno == ENOENT;
}

} // namespace

bool GenerationReader::Kept::has(const QString& pFolder) const
{
    const QString tReal = QFileInfo(pFolder).canonicalFilePath();
    return mFolders.contains(pFolder) || (!tReal.isEmpty() && mRealFolders.contains(tReal));
}

Failure GenerationReader::read(const QString& pPath, Manifest* pTo)
{
    const Result<QByteArray> tBytes = os::readFile(mFileSystem, pPath, sMaxManifestSize);
    if (!tBytes) {
        return isMissing(pPath) ? Failure::content(u"%1 is missing"_s.arg(pPath))
                                : tBytes.failure().as(Failure::Kind::Io);
    }
    Result<Manifest> tManifest = Manifest::fromBytes(*tBytes);
    if (!tManifest) {
        return Failure::content(u"%1 is damaged: %2"_s.arg(pPath, tManifest.failure().mText));
    }
    *pTo = std::move(*tManifest);
    return {};
}

Failure GenerationReader::manifest(qint64 pNumber, Manifest* pTo)
{
    const QString tPath = mFolders.generationDir(pNumber) + u'/' + manifestFileName();
    if (const Failure tFailure = read(tPath, pTo)) {
        return tFailure;
    }
    return pTo->mGeneration == pNumber
               ? Failure()
               : Failure::content(u"%1 is damaged: it belongs to another generation"_s.arg(tPath));
}

Failure GenerationReader::intent(Manifest* pTo)
{
    *pTo = Manifest();
    return isMissing(mFolders.intentFile()) ? Failure() : read(mFolders.intentFile(), pTo);
}

Failure GenerationReader::prepared(Manifest* pTo)
{
    *pTo = Manifest();
    return isMissing(mFolders.preparedFile()) ? Failure() : read(mFolders.preparedFile(), pTo);
}

Failure GenerationReader::currentNumber(qint64* pTo) const
{
    *pTo = 0;
    const QString tLink = mFolders.currentLink();
    const QFileInfo tInfo(tLink);
    if (!tInfo.isSymLink()) {
        return tInfo.exists() ? Failure::content(u"%1 is not a link"_s.arg(tLink)) : Failure();
    }
    bool tIsNumber = false;
    *pTo = QFileInfo(QFile::symLinkTarget(tLink)).fileName().toLongLong(&tIsNumber);
    return tIsNumber ? Failure() : Failure::content(u"%1 does not name a generation"_s.arg(tLink));
}

Failure GenerationReader::current(Manifest* pTo, QString* pDamage)
{
    *pTo = Manifest();
    qint64 tNumber = 0;
    Failure tFailure = currentNumber(&tNumber);
    if (tFailure || tNumber == 0) {
        return tFailure;
    }
    tFailure = manifest(tNumber, pTo);
    if (tFailure.mKind != Failure::Kind::Content) {
        return tFailure;
    }
    if (!newestSoundBefore(tNumber, pTo)) {
        *pTo = Manifest();
        return Failure::content(
            u"%1, and no earlier generation is valid. To install all packages again, "
            "remove the link %2 and start the update"_s.arg(tFailure.mText, mFolders.currentLink()));
    }
    if (pDamage != nullptr) {
        *pDamage = u"%1. Generation %2 counts as installed until the next update has made a new one"_s
                       .arg(tFailure.mText)
                       .arg(pTo->mGeneration);
    }
    return {};
}

Failure GenerationReader::sound(qint64 pNumber, Manifest* pTo)
{
    if (const Failure tFailure = manifest(pNumber, pTo)) {
        return tFailure;
    }
    for (const InstalledPackage& tPackage : std::as_const(pTo->mPackages)) {
        const QString tFolder = mFolders.absolute(tPackage.mFolder);
        if (!QDir::isAbsolutePath(tPackage.mFolder) && !QFileInfo(tFolder).isDir()) {
            return Failure::content(u"The folder %1 is missing"_s.arg(tFolder));
        }
    }
    return {};
}

bool GenerationReader::newestSoundBefore(qint64 pNumber, Manifest* pTo)
{
    QList<qint64> tNumbers = numbers();
    std::sort(tNumbers.begin(), tNumbers.end(), std::greater<>());
    return std::any_of(tNumbers.cbegin(), tNumbers.cend(),
                       [&](qint64 pCandidate) { return pCandidate < pNumber && !sound(pCandidate, pTo); });
}

QList<qint64> GenerationReader::numbers() const
{
    QList<qint64> tNumbers;
    const QStringList tNames =
        QDir(mFolders.generationsDir()).entryList(QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot);
    for (const QString& tName : tNames) {
        const qint64 tNumber = tName.toLongLong();
        if (tNumber > 0 && QString::number(tNumber) == tName) {
            tNumbers.append(tNumber);
        }
    }
    return tNumbers;
}

QStringList GenerationReader::folders(qint64 pNumber)
{
    Manifest tManifest;
    if (!manifest(pNumber, &tManifest)) {
        return tManifest.folders();
    }
    QStringList tFolders;
    const QDir tDir(mFolders.generationDir(pNumber));
    const QStringList tNames = tDir.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString& tName : tNames) {
        const auto tFolder = folderOfLink(tDir.filePath(tName));
        if (tFolder && PackageFolders::place(*tFolder)->mName == tName) {
            tFolders.append(*tFolder);
        }
    }
    return tFolders;
}

void GenerationReader::keep(qint64 pNumber, const QStringList& pFolders, Kept* pTo) const
{
    pTo->mNumbers.insert(pNumber);
    for (const QString& tFolder : pFolders) {
        const QString tPath = mFolders.absolute(tFolder);
        pTo->mFolders.insert(tPath);
        pTo->mRealFolders.insert(QFileInfo(tPath).canonicalFilePath());
    }
}

QList<qint64> GenerationReader::before(const Manifest& pCurrent)
{
    QList<qint64> tNumbers;
    Manifest tManifest = pCurrent;
    // Each is older than the next one, so that no damage makes this endless.
    while (tNumbers.size() < mKept && tManifest.mPrevious > 0 &&
           tManifest.mPrevious < tManifest.mGeneration) {
        tNumbers.append(tManifest.mPrevious);
        Manifest tBefore;
        if (manifest(tManifest.mPrevious, &tBefore)) {
            break;
        }
        tManifest = tBefore;
    }
    return tNumbers;
}

Failure GenerationReader::kept(Kept* pTo, Manifest* pCurrent, QString* pDamage)
{
    if (const Failure tFailure = current(pCurrent, pDamage)) {
        return tFailure;
    }
    qint64 tLinked = 0;
    if (const Failure tFailure = currentNumber(&tLinked)) {
        return tFailure;
    }
    keep(pCurrent->mGeneration, pCurrent->folders(), pTo);
    const QList<qint64> tNumbers = QList<qint64>{tLinked} + before(*pCurrent);
    for (const qint64 tNumber : tNumbers) {
        if (!pTo->mNumbers.contains(tNumber)) {
            keep(tNumber, folders(tNumber), pTo);
        }
    }
    return {};
}

} // namespace tarn::packages
