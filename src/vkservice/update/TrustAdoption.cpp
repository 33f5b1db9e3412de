#include "update/TrustAdoption.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "tuf/Hashes.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonDocument>
#include <QtCore/QJsonObject>
#include <QtCore/QMap>
#include <QtCore/QRegularExpression>

#include <cerrno>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::update {

namespace {

constexpr mode_t sPrivateDir = 0700;
constexpr mode_t sFileMode = 0644;
constexpr qint64 sMaxMetadataSize = 16 * 1024 * 1024;
constexpr qsizetype sNameLength = 32;
const QString sRootFile = u"root.json"_s;
const QString sNoteSuffix = u".note.json"_s;

struct File
{
    qint64 mVersion = 0;
    QByteArray mBytes;
};

using FileMap = QMap<QString, File>; // by name

qint64 versionOf(const QByteArray& pFile)
{
    const QJsonObject tSigned = QJsonDocument::fromJson(pFile).object().value("signed"_L1).toObject();
    return tSigned.value("version"_L1).toInteger();
}

Failure readFiles(os::FileSystem& pFileSystem, const QDir& pFolder, FileMap* pTo)
{
    for (const QString& tName : pFolder.entryList({u"*.json"_s}, QDir::Files)) {
        const auto tBytes = os::readFile(pFileSystem, pFolder.filePath(tName), sMaxMetadataSize);
        if (tBytes.failure().mKind == Failure::Kind::Io) {
            return tBytes.failure().as(Failure::Kind::Damaged);
        }
        if (tBytes) {
            pTo->insert(tName, {versionOf(*tBytes), *tBytes});
        }
    }
    return {};
}

// The newest root, and the newest file of each other role that was accepted under it. What an older root
// accepted may be signed by keys that were stolen and replaced since.
void takeNewest(const FileMap& pFiles, FileMap* pTo)
{
    const qint64 tRoot = pFiles.value(sRootFile).mVersion;
    const qint64 tKnown = pTo->value(sRootFile).mVersion;
    if (tRoot > tKnown) {
        pTo->clear();
    }
    for (auto tIt = pFiles.cbegin(); tIt != pFiles.cend() && tRoot >= tKnown; ++tIt) {
        if (tIt->mVersion > pTo->value(tIt.key()).mVersion) {
            pTo->insert(tIt.key(), *tIt);
        }
    }
}

// All or nothing: an incomplete folder would look like a new trust.
Failure makeFolder(os::FileSystem& pFileSystem, const QString& pPath, const FileMap& pFiles)
{
    const QString tNew = pPath + u".new"_s;
    if (Failure tFailure = os::removeTree(pFileSystem, tNew)) {
        return tFailure;
    }
    if (Failure tFailure = os::makePath(pFileSystem, tNew, sPrivateDir)) {
        return tFailure;
    }
    for (auto tIt = pFiles.cbegin(); tIt != pFiles.cend(); ++tIt) {
        const QString tFile = tNew + u'/' + tIt.key();
        if (Failure tFailure = os::replaceFile(pFileSystem, tFile, tIt->mBytes, sFileMode)) {
            return tFailure.as(Failure::Kind::Damaged);
        }
    }
    if (pFileSystem.rename(QFile::encodeName(tNew), QFile::encodeName(pPath)) != 0) {
        return Failure::fromErrno(errno, u"make the folder "_s + pPath);
    }
    return os::syncDir(pFileSystem, QFileInfo(pPath).path());
}

} // namespace

TrustAdoption::TrustAdoption(os::FileSystem& pFileSystem, const QString& pFolder)
    : mFileSystem(pFileSystem), mFolder(pFolder)
{
    static const QRegularExpression sName(u"\\A[0-9a-f]{32}\\z"_s);
    mOld = QDir(pFolder).entryList(QDir::Dirs | QDir::NoSymLinks | QDir::NoDotAndDotDot).filter(sName);
}

Result<QString> TrustAdoption::readNote(const QString& pFolder) const
{
    const auto tBytes = os::readFile(mFileSystem, mFolder + u'/' + pFolder + sNoteSuffix, sMaxMetadataSize);
    if (tBytes.failure().mKind == Failure::Kind::Io) {
        return tBytes.failure().as(Failure::Kind::Damaged);
    }
    return QJsonDocument::fromJson(tBytes.valueOr({})).object().value("root"_L1).toString();
}

QByteArray TrustAdoption::rootHash(const QString& pUri) const
{
    const QString tFolder = QString::fromLatin1(tuf::sha256(pUri.toUtf8()).left(sNameLength));
    const QString tHash = readNote(tFolder).valueOr({});
    return tuf::Hash::fromHex(tuf::HashAlgorithm::Sha256, tHash) ? tHash.toLatin1() : QByteArray();
}

Failure TrustAdoption::adopt(const QByteArray& pRootHash, const QString& pTo) const
{
    FileMap tNewest;
    for (const QString& tName : mOld) {
        const Result<QString> tNoted = readNote(tName);
        if (!tNoted) {
            return tNoted.failure();
        }
        // If the note is missing, the current root file applies, as in that version.
        if (!tNoted->isEmpty() && *tNoted != QLatin1String(pRootHash)) {
            continue;
        }
        FileMap tFiles;
        if (Failure tFailure = readFiles(mFileSystem, QDir(mFolder + u'/' + tName), &tFiles)) {
            return tFailure;
        }
        takeNewest(tFiles, &tNewest);
    }
    const bool tHasRoot = tNewest.value(sRootFile).mVersion > 0;
    return tHasRoot ? makeFolder(mFileSystem, pTo, tNewest) : Failure();
}

void TrustAdoption::remove() const
{
    for (const QString& tName : mOld) {
        const QString tPath = mFolder + u'/' + tName;
        for (const QString& tSuffix : {sNoteSuffix, sNoteSuffix + u".new"_s, QString()}) {
            (void)os::removeTree(mFileSystem, tPath + tSuffix);
        }
    }
}

} // namespace tarn::vkservice::update
