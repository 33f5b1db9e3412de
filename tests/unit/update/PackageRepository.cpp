#include "PackageRepository.h"

#include "deltas/DeltaMaker.h"
#include "TestArchive.h"
#include "trees/IndexWriter.h"
#include "tuf/Hashes.h"

#include <gtest/gtest.h>
#include <zstd.h>

#include <limits>

using namespace tarn::trees;
using tarn::packages::PackageInfo;
using tarn::vkpublish::PackageVersion;

namespace {

tarn::tuf::Hash hashOf(const QByteArray& pBytes)
{
    return *tarn::tuf::Hash::fromHex(q(tarn::tuf::sha256(pBytes)));
}

} // namespace

PackageInfo infoOf(const TestPackage& pPackage)
{
    PackageInfo tInfo;
    tInfo.mName = pPackage.mName;
    tInfo.mKind = pPackage.mKind;
    tInfo.mVersion = {tarn::vkcore::Version::fromString(pPackage.mVersion), QDateTime()};
    tInfo.mTitle.setValue(q("en"), q("Title of ") + pPackage.mName);
    tInfo.mReport.setValue(q("en"), q("Report of ") + pPackage.mVersion);
    tInfo.mLanguage = pPackage.mLanguage;
    tInfo.mRequires = pPackage.mRequires;
    tInfo.mExecutables = pPackage.mExecutables;
    tInfo.mCheck = pPackage.mCheck;
    for (const QByteArray& tContent : pPackage.mFiles) {
        tInfo.mInstalledSize += tContent.size();
    }
    return tInfo;
}

PackageRepository::PackageRepository() : TestRepository(QDateTime::currentDateTimeUtc())
{
    mRoles[sTargetsRole].mTargets.clear();
    for (const QString& tRole : {sTimestampRole, sSnapshotRole, sTargetsRole}) {
        mRoles[tRole].mVersion = 0;
    }
    setExpiry(QDateTime::currentDateTimeUtc().addDays(10));
}

void PackageRepository::setExpiry(const QDateTime& pExpires)
{
    for (const QString& tRole : {sTimestampRole, sSnapshotRole, sTargetsRole}) {
        mRoles[tRole].mExpires = pExpires;
    }
}

QString PackageRepository::add(const TestPackage& pPackage)
{
    QList<TestEntry> tEntries;
    for (auto tIt = pPackage.mFiles.begin(); tIt != pPackage.mFiles.end(); ++tIt) {
        const mode_t tRights = tIt.key().startsWith(q("bin/")) ? 0755 : 0644;
        tEntries.append({tIt.key().toUtf8(), tIt.value(), S_IFREG | tRights});
    }
    PackageInfo tInfo = infoOf(pPackage);
    if (mBeside == Beside::Nothing) {
        return add(tInfo, makeArchive(tEntries));
    }
    const QByteArray tArchive = addIndex(tEntries, &tInfo);
    const QString tFile = path(q("targets/%1.%2").arg(q(tarn::tuf::sha256(tArchive)), archiveName(tInfo)));
    writeFile(tFile, tArchive);
    if (mBeside == Beside::IndexAndDelta) {
        addDelta(tFile, &tInfo);
    }
    mBefore[pPackage.mName] = {tInfo, tFile};
    return add(tInfo, tArchive);
}

// Returns the archive.
QByteArray PackageRepository::addIndex(const QList<TestEntry>& pFiles, PackageInfo* pInfo)
{
    QList<TestEntry> tEntries;
    std::vector<IndexEntry> tIndex;
    for (const TestEntry& tFile : pFiles) {
        for (qsizetype tEnd = tFile.mPath.indexOf('/'); tEnd > 0; tEnd = tFile.mPath.indexOf('/', tEnd + 1)) {
            const QByteArray tFolder = tFile.mPath.first(tEnd);
            if (tEntries.isEmpty() || !tEntries.last().mPath.startsWith(tFolder + '/')) {
                tEntries.append({tFolder, {}, S_IFDIR | 0755});
                tIndex.push_back({tFolder, EntryKind::Folder, {}, false, 0, 0, {}, 0});
            }
        }
        tEntries.append(tFile);
        tIndex.push_back({tFile.mPath,
                          EntryKind::File,
                          {},
                          (tFile.mMode & 0100) != 0,
                          1,
                          tFile.mContent.size(),
                          hashOf(tFile.mContent),
                          0});
    }
    const QByteArray tTar = makeTar(tEntries);
    qsizetype tAt = 0;
    for (IndexEntry& tEntry : tIndex) {
        tEntry.mAt = tAt + 512; // behind its header
        tAt += 512 + (tEntry.mSize + 511) / 512 * 512;
    }
    constexpr qsizetype sFrame = 20000;
    QByteArray tArchive;
    std::vector<Frame> tFrames;
    for (tAt = 0; tAt < tTar.size(); tAt += sFrame) {
        const QByteArray tPart = tTar.mid(tAt, sFrame);
        QByteArray tPacked(static_cast<qsizetype>(ZSTD_compressBound(sFrame)), '\0');
        tPacked.resize(
            static_cast<qsizetype>(ZSTD_compress(tPacked.data(), static_cast<size_t>(tPacked.size()),
                                                 tPart.constData(), static_cast<size_t>(tPart.size()), 1)));
        tFrames.push_back({tPacked.size(), tPart.size(), hashOf(tPacked)});
        tArchive += tPacked;
    }
    if (mOnIndex) {
        mOnIndex(&tIndex);
    }
    const QByteArray tText = indexText(tFrames, tIndex);
    const QByteArray tPacked = packIndex(tText);
    pInfo->mIndex = {{tPacked.size(), hashOf(tPacked)}, {hashOf(tText), tText.size()}};
    writeFile(path(q("targets/")) + pInfo->mIndex->name(), tPacked);
    return tArchive;
}

void PackageRepository::addDelta(const QString& pArchive, PackageInfo* pInfo)
{
    const auto tBefore = mBefore.find(pInfo->mName);
    if (tBefore == mBefore.end()) {
        return;
    }
    const auto tOpen = [this](const PackageInfo& pOf, const QString& pFile, PackageVersion* pTo) {
        const IndexLimits tLimits{.mMaxBytes = pOf.mInstalledSize, .mArchiveSize = QFileInfo(pFile).size()};
        return !pTo->open(path(q("targets/")) + pOf.mIndex->name(), pFile, tLimits, pFile + q(".scratch"));
    };
    PackageVersion tOld(tarn::os::realFileSystem());
    PackageVersion tNew(tarn::os::realFileSystem());
    tarn::vkpublish::DeltaResult tResult;
    const QString tDelta = path(q("delta"));
    EXPECT_TRUE(tOpen(tBefore->first, tBefore->second, &tOld) && tOpen(*pInfo, pArchive, &tNew) &&
                !makeDelta(tarn::os::realFileSystem(), tOld, tNew, 1, std::numeric_limits<qint64>::max(),
                           tDelta, &tResult));
    pInfo->mDeltas = {{{tResult.mLength, tResult.mHash}, tBefore->first.mIndex->mText}};
    QFile::rename(tDelta, path(q("targets/")) + pInfo->mDeltas.first().name());
}

QString PackageRepository::add(const PackageInfo& pInfo, const QByteArray& pArchive)
{
    const QString tPath = archiveName(pInfo);
    const QString tFile = path(q("targets/%1.%2").arg(q(tarn::tuf::sha256(pArchive)), tPath));
    writeFile(tFile, pArchive);
    mRoles[sTargetsRole].mTargets[tPath] = pArchive;
    mStated[tPath] = {{q("custom"), pInfo.toJson()}};
    return tFile;
}

void PackageRepository::set(const QString& pFile, const char* pMember, const QJsonValue& pValue)
{
    mStated[QFileInfo(pFile).fileName().section(u'.', 1)].insert(q(pMember), pValue);
}

void PackageRepository::remove(const QString& pName)
{
    mRoles[sTargetsRole].mTargets.removeIf(
        [&](const auto& pTarget) { return pTarget.key().startsWith(pName + u'-'); });
}

void PackageRepository::publish()
{
    mFiles = {{q("1.root.json"), root()}};
    TestRepository::publish();
    for (const QString& tName : mFiles.keys()) {
        writeFile(path(q("metadata/") + tName), mFiles[tName]);
    }
}
