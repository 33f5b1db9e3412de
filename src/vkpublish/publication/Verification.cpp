#include "publication/Verification.h"

#include "evidence/Attachments.h"
#include "network/MetadataSource.h"
#include "publication/FileMatch.h"
#include "publication/Layout.h"
#include "publication/Releases.h"
#include "publication/SideFileCheck.h"

#include "os/FileSystem.h"
#include "os/FileTools.h"
#include "packages/PackageInfo.h"
#include "tuf/CanonicalJson.h"
#include "tuf/Metadata.h"
#include "tuf/Updater.h"

#include <QtCore/QDir>
#include <QtCore/QJsonArray>
#include <QtCore/QJsonDocument>
#include <QtCore/QSet>
#include <QtCore/QTemporaryDir>
#include <QtCore/QUrl>

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

// Signatures do not cover some bytes of a metadata file: blanks, and the case of hexadecimal digits.
bool isWrittenByUs(const QByteArray& pFile)
{
    const QJsonObject tObject = QJsonDocument::fromJson(pFile).object();
    QByteArray tCanonical;
    if (!tuf::canonicalJson(tObject, &tCanonical) || tCanonical != pFile) {
        return false;
    }
    for (const QJsonValue tSignature : tObject["signatures"_L1].toArray()) {
        const QString tHex = tSignature["sig"_L1].toString();
        if (tHex != tHex.toLower()) {
            return false;
        }
    }
    return true;
}

// Keys of every root in the folder, because retiring keys have signed, too.
tuf::KeyMap allKeys(const QString& pRepository)
{
    tuf::KeyMap tKeys;
    const QDir tFolder(metadataFolder(pRepository));
    for (const QString& tName : tFolder.entryList({u"*.root.json"_s}, QDir::Files)) {
        const auto tFile =
            os::readFile(os::realFileSystem(), tFolder.filePath(tName), tuf::Limits().mRootLength);
        tuf::Root tRoot;
        if (tFile && !tuf::parseRoot(*tFile, &tRoot)) {
            tKeys.insert(tRoot.mKeys);
        }
    }
    return tKeys;
}

// Clients need only one of the signatures. No hash covers the others, so they are checked here.
bool allSignaturesHold(const QByteArray& pTimestamp, const tuf::KeyMap& pKeys)
{
    tuf::Timestamp tTimestamp;
    return !tuf::parseTimestamp(pTimestamp, &tTimestamp) &&
           std::all_of(tTimestamp.mSignatures.begin(), tTimestamp.mSignatures.end(),
                       [&](const tuf::Signature& pSignature) {
                           QByteArray tIdentity;
                           return pKeys.value(pSignature.mKeyId)
                               .verify(tTimestamp.mMessage, pSignature.mBytes, &tIdentity);
                       });
}

// Serves the repository's metadata to the client, and records the requested files.
class WatchedFolder : public FolderFetcher
{
public:
    explicit WatchedFolder(const QString& pRepository)
        : FolderFetcher(os::realFileSystem(), metadataFolder(pRepository)), mRepository(pRepository)
    {
    }

    Failure fetch(const QString& pPath, qint64 pMaxLength, QByteArray* pTo) override
    {
        if (Failure tFailure = FolderFetcher::fetch(pPath, pMaxLength, pTo)) {
            return tFailure;
        }
        const QString tPath = metadataFolder(mRepository) + u'/' + pPath;
        mUsed.insert(tPath);
        if (!isWrittenByUs(*pTo) ||
            (tPath == timestampPath(mRepository) && !allSignaturesHold(*pTo, allKeys(mRepository)))) {
            mChanged.append(tPath);
        }
        if (pPath.endsWith(".root.json"_L1)) {
            mRoots.append(*pTo);
        }
        return {};
    }

    QSet<QString> mUsed;
    QStringList mChanged;
    QList<QByteArray> mRoots;

private:
    QString mRepository;
};

// Null for a package that is for all machines at once.
QString releaseOf(const tuf::TargetFile& pTarget, const QDateTime& pNow)
{
    const auto tInfo = packages::PackageInfo::fromJson(pTarget.mCustom);
    const QString tText = tInfo ? releaseText(tInfo->mRelease, pNow) : QString();
    return tText.isEmpty() ? QString() : u"%1: %2"_s.arg(pTarget.mPath, tText);
}

// Adds the files beside the archive to *pUsed.
Failure checkPackage(const tuf::TargetFile& pTarget, const QString& pTargets, const QString& pArchive,
                     QSet<QString>* pUsed)
{
    const auto tInfo = packages::PackageInfo::fromJson(pTarget.mCustom);
    if (!tInfo) {
        return Failure::content(
            u"%1 has an invalid package description: %2"_s.arg(pTarget.mPath, tInfo.failure().mText));
    }
    Failure tFailure;
    if (tInfo->mIndex) {
        pUsed->insert(pTargets + u'/' + tInfo->mIndex->name());
        tFailure = checkIndex(pTargets, *tInfo, pArchive, pTarget.mLength);
    }
    for (const packages::DeltaFile& tDelta : tInfo->mDeltas) {
        pUsed->insert(pTargets + u'/' + tDelta.name());
        tFailure = tFailure ? tFailure : checkDelta(pTargets, *tInfo, tDelta);
    }
    for (const packages::Attachment& tAttachment : tInfo->mAttachments) {
        pUsed->insert(pTargets + u'/' + tAttachment.name());
        tFailure = tFailure ? tFailure : checkAttachment(pTargets, tAttachment);
    }
    return tFailure;
}

QStringList unusedFiles(const QString& pRepository, const QSet<QString>& pUsed)
{
    QStringList tUnused;
    for (const QString& tFolder : {metadataFolder(pRepository), targetsFolder(pRepository)}) {
        for (const QFileInfo& tFile : QDir(tFolder).entryInfoList(QDir::Files | QDir::Hidden, QDir::Name)) {
            const QString tPath = tFolder + u'/' + tFile.fileName();
            // Clients that were off for a long time still follow roots from before the first one in use.
            if (!pUsed.contains(tPath) && !tPath.endsWith(".root.json"_L1)) {
                tUnused.append(tPath);
            }
        }
    }
    return tUnused;
}

} // namespace

VerificationResult verifyRepository(const QString& pRepository, const QByteArray& pRoot,
                                    const QDateTime& pNow)
{
    VerificationResult tResult;
    const QTemporaryDir tTrusted;
    WatchedFolder tFetcher(pRepository);
    os::FileSystem& tFileSystem = os::realFileSystem();
    tuf::Updater tUpdater(tFileSystem, tTrusted.path(), tFetcher, pNow);
    QList<tuf::TargetFile> tTargets;
    const auto tFollow = [&]() -> Failure {
        if (Failure tFailure = tuf::Updater::initialize(tFileSystem, tTrusted.path(), pRoot)) {
            return tFailure;
        }
        if (Failure tFailure = tUpdater.refresh()) {
            return tFailure;
        }
        return tUpdater.allTargets(&tTargets);
    };
    if (const Failure tFailure = tFollow()) {
        tResult.mProblems.append(tFailure.mText);
    }
    if (!isWrittenByUs(pRoot)) {
        tResult.mProblems.append(u"The root was changed since it was written"_s);
    }
    for (const QString& tPath : tFetcher.mChanged) {
        tResult.mProblems.append(u"%1 was changed since it was written"_s.arg(tPath));
    }
    QSet<QString> tUsed = tFetcher.mUsed;
    const QString tFolder = targetsFolder(pRepository);
    for (const tuf::TargetFile& tTarget : tTargets) {
        const QString tPath = tFolder + u'/' + QUrl::fromPercentEncoding(tTarget.mFetchPath.toLatin1());
        if (const Failure tChanged = fileMatches(tPath, tTarget.mLength, tTarget.mHashes)) {
            tResult.mProblems.append(tChanged.mText);
        } else if (const Failure tNoPackage = checkPackage(tTarget, tFolder, tPath, &tUsed)) {
            tResult.mProblems.append(tNoPackage.mText);
        }
        tUsed.insert(tPath);
        if (const QString tRelease = releaseOf(tTarget, pNow); !tRelease.isNull()) {
            tResult.mReleases.append(tRelease);
        }
    }
    tResult.mRoots = QList<QByteArray>{pRoot} + tFetcher.mRoots;
    tResult.mPackageCount = static_cast<int>(tTargets.size());
    tResult.mUnused = unusedFiles(pRepository, tUsed);
    return tResult;
}

} // namespace tarn::vkpublish
