#include "commands/Commands.h"

#include "CommandLine.h"
#include "KeyFolder.h"
#include "Layout.h"
#include "Roles.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
#include "tuf/Metadata.h"

#include <QtCore/QDir>

namespace tarn::vkpublish {

namespace {

bool checkPlaces(const QString& pRepository, const QString& pKeys, QString* pError)
{
    if (isInside(pKeys, pRepository)) {
        *pError =
            QStringLiteral("The key folder %1 lies in the repository: what lies there is given to everybody")
                .arg(pKeys);
    } else if (isInside(pRepository, pKeys)) {
        *pError = QStringLiteral("The repository %1 lies in the key folder, where nobody may read it")
                      .arg(pRepository);
    } else if (QFileInfo::exists(metadataFolder(pRepository))) {
        *pError = QStringLiteral("%1 holds a repository already").arg(pRepository);
    }
    return pError->isEmpty();
}

bool makeFolders(const QString& pRepository, QString* pError)
{
    for (const QString& tFolder : {metadataFolder(pRepository), targetsFolder(pRepository)}) {
        if (!QDir().mkpath(tFolder)) {
            *pError = QStringLiteral("The folder %1 can't be made").arg(tFolder);
            return false;
        }
    }
    return true;
}

bool makeKeys(KeyFolder* pFolder, const QString& pType, const QDateTime& pExpires, QString* pError)
{
    QMap<QString, tuf::SigningKey> tKeys;
    for (const QString& tRole : roleNames()) {
        const std::optional<tuf::SigningKey> tKey = tuf::SigningKey::generate(pType);
        if (!tKey) {
            *pError = QStringLiteral("A key of type %1 can't be made").arg(pType);
            return false;
        }
        if (!pFolder->addKey(tRole, *tKey, pError)) {
            return false;
        }
        tKeys.insert(tRole, *tKey);
    }
    pFolder->mRecord.mVersions[tuf::sRoot] = 1;
    pFolder->mRecord.mRoot = makeRoot(1, pExpires, tKeys, std::nullopt);
    return pFolder->save(pError);
}

} // namespace

int cmdInit(const QStringList& pArguments)
{
    CommandLine tLine(QStringLiteral("init"),
                      QStringLiteral("Makes the keys and the first root of a new repository."));
    tLine.addRepository();
    tLine.addOption(QStringLiteral("key-type"), QStringLiteral("ed25519, ecdsa, ecdsa-p384 or rsa"),
                    QStringLiteral("TYPE"), QStringLiteral("ed25519"));
    tLine.addOption(QStringLiteral("root-days"), QStringLiteral("How long the root holds, in days"),
                    QStringLiteral("DAYS"), QStringLiteral("3650"));
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const std::optional<int> tDays = tLine.number("root-days", 1, 36500);
    const QString tType = tLine.value("key-type");
    if (!tuf::SigningKey::types().contains(tType)) {
        complain(QStringLiteral("There is no key type \"%1\"").arg(tType));
        return StatusUsage;
    }
    if (!tDays) {
        return StatusUsage;
    }

    os::FileSystem& tFileSystem = os::realFileSystem();
    KeyFolder tKeys(tFileSystem, tLine.keys());
    const QString tRootPath = versionedPath(tLine.repository(), tuf::sRoot, 1);
    QString tError;
    if (!checkPlaces(tLine.repository(), tLine.keys(), &tError) || !tKeys.create(&tError) ||
        !makeKeys(&tKeys, tType, QDateTime::currentDateTimeUtc().addDays(*tDays), &tError) ||
        !makeFolders(tLine.repository(), &tError)) {
        complain(tError);
        return StatusFailed;
    }
    if (const tuf::Error tWrite =
            tuf::writeFileAtomically(tFileSystem, tRootPath, tKeys.mRecord.mRoot, 0644)) {
        complain(tWrite.mText);
        return StatusFailed;
    }
    say(QStringLiteral("Keys:               %1 (keep it private, and keep a copy)").arg(tLine.keys()));
    say(QStringLiteral("Root for clients:   %1").arg(tRootPath));
    say(QStringLiteral("Next:               vkpublish add %1 FOLDER --name NAME --version VERSION")
            .arg(tLine.argument(0)));
    return StatusDone;
}

} // namespace tarn::vkpublish
