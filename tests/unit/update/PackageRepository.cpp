#include "PackageRepository.h"

#include "TestArchive.h"
#include "tuf/Hashes.h"

using tarn::packages::PackageInfo;

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
    return add(infoOf(pPackage), makeArchive(tEntries));
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
