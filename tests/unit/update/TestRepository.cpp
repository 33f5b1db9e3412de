#include "TestRepository.h"

#include "TestArchive.h"
#include "tuf/Hashes.h"

#include <QtCore/QJsonArray>

using tarn::tuf::SigningKey;
using tarn::vkservice::packages::PackageInfo;

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

TestRepository::TestRepository()
    : mKey(*SigningKey::generate(q("ed25519"))), mExpires(QDateTime::currentDateTimeUtc().addDays(10))
{
    QJsonObject tRoles;
    for (const char* tRole : {"root", "timestamp", "snapshot", "targets"}) {
        tRoles.insert(q(tRole), QJsonObject{{q("threshold"), 1}, {q("keyids"), QJsonArray{mKey.id()}}});
    }
    QJsonObject tRoot = signedPart(q("root"));
    tRoot.insert(q("version"), 1);
    tRoot.insert(q("consistent_snapshot"), true);
    tRoot.insert(q("keys"), QJsonObject{{mKey.id(), mKey.publicJson()}});
    tRoot.insert(q("roles"), tRoles);
    mRoot = write(q("1.root.json"), tRoot);
}

QString TestRepository::path(const QString& pBelow) const
{
    return mDir.filePath(pBelow);
}

QJsonObject TestRepository::signedPart(const QString& pType) const
{
    return {{q("_type"), pType},
            {q("spec_version"), q("1.0.31")},
            {q("version"), mVersion},
            {q("expires"), mExpires.toString(q("yyyy-MM-ddTHH:mm:ssZ"))}};
}

QByteArray TestRepository::write(const QString& pName, const QJsonObject& pSigned)
{
    const QByteArray tFile = tarn::tuf::signMetadata(pSigned, {mKey});
    writeFile(path(q("metadata/") + pName), tFile);
    return tFile;
}

QString TestRepository::add(const TestPackage& pPackage)
{
    QList<TestEntry> tEntries;
    for (auto tIt = pPackage.mFiles.begin(); tIt != pPackage.mFiles.end(); ++tIt) {
        const mode_t tRights = tIt.key().startsWith(q("bin/")) ? 0755 : 0644;
        tEntries.append({tIt.key().toUtf8(), tIt.value(), S_IFREG | tRights});
    }
    return add(infoOf(pPackage), makeArchive(tEntries));
}

QString TestRepository::add(const PackageInfo& pInfo, const QByteArray& pArchive)
{
    const QString tPath = archiveName(pInfo);
    const QString tHash = q(tarn::tuf::sha256(pArchive));
    const QString tFile = path(q("targets/%1.%2").arg(tHash, tPath));
    writeFile(tFile, pArchive);
    mTargets.insert(tPath, QJsonObject{{q("length"), pArchive.size()},
                                       {q("hashes"), QJsonObject{{q("sha256"), tHash}}},
                                       {q("custom"), pInfo.toJson()}});
    return tFile;
}

void TestRepository::set(const QString& pFile, const char* pMember, const QJsonValue& pValue)
{
    const QString tPath = QFileInfo(pFile).fileName().section(u'.', 1);
    QJsonObject tTarget = mTargets[tPath].toObject();
    tTarget.insert(q(pMember), pValue);
    mTargets.insert(tPath, tTarget);
}

void TestRepository::remove(const QString& pName)
{
    const QStringList tPaths = mTargets.keys();
    for (const QString& tPath : tPaths) {
        if (tPath.startsWith(pName + u'-')) {
            mTargets.remove(tPath);
        }
    }
}

void TestRepository::publish()
{
    ++mVersion;
    const QJsonObject tMeta{{q("version"), mVersion}};
    QJsonObject tTargets = signedPart(q("targets"));
    tTargets.insert(q("targets"), mTargets);
    write(q("%1.targets.json").arg(mVersion), tTargets);

    QJsonObject tSnapshot = signedPart(q("snapshot"));
    tSnapshot.insert(q("meta"), QJsonObject{{q("targets.json"), tMeta}});
    write(q("%1.snapshot.json").arg(mVersion), tSnapshot);

    QJsonObject tTimestamp = signedPart(q("timestamp"));
    tTimestamp.insert(q("meta"), QJsonObject{{q("snapshot.json"), tMeta}});
    write(q("timestamp.json"), tTimestamp);
}
