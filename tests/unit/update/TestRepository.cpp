#include "TestRepository.h"

#include "TestArchive.h"
#include "tuf/Hashes.h"

#include <QtCore/QDir>
#include <QtCore/QFile>
#include <QtCore/QFileInfo>
#include <QtCore/QJsonArray>

using tarn::tuf::SigningKey;
using tarn::vkservice::packages::PackageInfo;

PackageInfo infoOf(const TestPackage& pPackage)
{
    PackageInfo tInfo;
    tInfo.mName = pPackage.mName;
    tInfo.mKind = pPackage.mKind;
    tInfo.mVersion = {tarn::vkcore::Version::fromString(pPackage.mVersion), QDateTime()};
    tInfo.mTitle.setValue(QStringLiteral("en"), QStringLiteral("Title of ") + pPackage.mName);
    tInfo.mReport.setValue(QStringLiteral("en"), QStringLiteral("Report of ") + pPackage.mVersion);
    tInfo.mLanguage = pPackage.mLanguage;
    tInfo.mRequires = pPackage.mRequires;
    tInfo.mExecutables = pPackage.mExecutables;
    for (const QByteArray& tContent : pPackage.mFiles) {
        tInfo.mInstalledSize += tContent.size();
    }
    return tInfo;
}

TestRepository::TestRepository()
    : mKey(*SigningKey::generate(QStringLiteral("ed25519"))),
      mExpires(QDateTime::currentDateTimeUtc().addDays(10))
{
    QJsonObject tRoles;
    for (const char* tRole : {"root", "timestamp", "snapshot", "targets"}) {
        tRoles.insert(QLatin1String(tRole), QJsonObject{{QStringLiteral("threshold"), 1},
                                                        {QStringLiteral("keyids"), QJsonArray{mKey.id()}}});
    }
    QJsonObject tRoot = signedPart(QStringLiteral("root"));
    tRoot.insert(QStringLiteral("version"), 1);
    tRoot.insert(QStringLiteral("consistent_snapshot"), true);
    tRoot.insert(QStringLiteral("keys"), QJsonObject{{mKey.id(), mKey.publicJson()}});
    tRoot.insert(QStringLiteral("roles"), tRoles);
    mRoot = write(QStringLiteral("1.root.json"), tRoot);
}

QString TestRepository::path(const QString& pBelow) const
{
    return mDir.filePath(pBelow);
}

QJsonObject TestRepository::signedPart(const QString& pType) const
{
    return {{QStringLiteral("_type"), pType},
            {QStringLiteral("spec_version"), QStringLiteral("1.0.31")},
            {QStringLiteral("version"), mVersion},
            {QStringLiteral("expires"), mExpires.toString(QStringLiteral("yyyy-MM-ddTHH:mm:ssZ"))}};
}

QByteArray TestRepository::write(const QString& pName, const QJsonObject& pSigned)
{
    const QByteArray tFile = tarn::tuf::signMetadata(pSigned, {mKey});
    writeFile(path(QStringLiteral("metadata/") + pName), tFile);
    return tFile;
}

QString TestRepository::add(const TestPackage& pPackage)
{
    QList<TestEntry> tEntries;
    for (auto tIt = pPackage.mFiles.begin(); tIt != pPackage.mFiles.end(); ++tIt) {
        const mode_t tRights = tIt.key().startsWith(QLatin1String("bin/")) ? 0755 : 0644;
        tEntries.append({tIt.key().toUtf8(), tIt.value(), S_IFREG | tRights});
    }
    return add(infoOf(pPackage), makeArchive(tEntries));
}

QString TestRepository::add(const PackageInfo& pInfo, const QByteArray& pArchive)
{
    const QString tPath = archiveName(pInfo);
    const QString tHash = QString::fromLatin1(tarn::tuf::sha256(pArchive));
    const QString tFile = path(QStringLiteral("targets/%1.%2").arg(tHash, tPath));
    writeFile(tFile, pArchive);
    mTargets.insert(tPath,
                    QJsonObject{{QStringLiteral("length"), pArchive.size()},
                                {QStringLiteral("hashes"), QJsonObject{{QStringLiteral("sha256"), tHash}}},
                                {QStringLiteral("custom"), pInfo.toJson()}});
    return tFile;
}

void TestRepository::remove(const QString& pName)
{
    const QStringList tPaths = mTargets.keys();
    for (const QString& tPath : tPaths) {
        if (tPath.startsWith(pName + QLatin1Char('-'))) {
            mTargets.remove(tPath);
        }
    }
}

void TestRepository::publish()
{
    ++mVersion;
    const QJsonObject tMeta{{QStringLiteral("version"), mVersion}};
    QJsonObject tTargets = signedPart(QStringLiteral("targets"));
    tTargets.insert(QStringLiteral("targets"), mTargets);
    write(QStringLiteral("%1.targets.json").arg(mVersion), tTargets);

    QJsonObject tSnapshot = signedPart(QStringLiteral("snapshot"));
    tSnapshot.insert(QStringLiteral("meta"), QJsonObject{{QStringLiteral("targets.json"), tMeta}});
    write(QStringLiteral("%1.snapshot.json").arg(mVersion), tSnapshot);

    QJsonObject tTimestamp = signedPart(QStringLiteral("timestamp"));
    tTimestamp.insert(QStringLiteral("meta"), QJsonObject{{QStringLiteral("snapshot.json"), tMeta}});
    write(QStringLiteral("timestamp.json"), tTimestamp);
}

void spoil(const QString& pPath)
{
    QByteArray tBytes = readFile(pPath);
    char& tByte = tBytes[tBytes.size() / 2];
    tByte = static_cast<char>(tByte ^ 1);
    writeFile(pPath, tBytes);
}

void writeFile(const QString& pPath, const QByteArray& pContent)
{
    QDir().mkpath(QFileInfo(pPath).path());
    QFile tFile(pPath);
    tFile.open(QIODevice::WriteOnly | QIODevice::Truncate);
    tFile.write(pContent);
}

QByteArray readFile(const QString& pPath)
{
    QFile tFile(pPath);
    return tFile.open(QIODevice::ReadOnly) ? tFile.readAll() : QByteArray();
}
