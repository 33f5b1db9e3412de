#include "commands/Commands.h"

#include "CommandLine.h"
#include "KeyFolder.h"
#include "Layout.h"
#include "Roles.h"

#include "os/FileSystem.h"
#include "tuf/AtomicFile.h"
#include "tuf/Metadata.h"

#include <QtCore/QDir>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

bool checkPlaces(const QString& pRepository, const QString& pKeys, QString* pError)
{
    if (isInside(pKeys, pRepository)) {
        *pError = u"The key folder %1 is in the repository, whose files are public"_s.arg(pKeys);
    } else if (isInside(pRepository, pKeys)) {
        *pError = u"The repository %1 is in the key folder, which nobody else can read"_s.arg(pRepository);
    } else if (QFileInfo::exists(metadataFolder(pRepository))) {
        *pError = u"%1 already contains a repository"_s.arg(pRepository);
    }
    return pError->isEmpty();
}

bool makeFolders(const QString& pRepository, QString* pError)
{
    for (const QString& tFolder : {metadataFolder(pRepository), targetsFolder(pRepository)}) {
        if (!QDir().mkpath(tFolder)) {
            *pError = u"The folder %1 can't be created"_s.arg(tFolder);
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
            *pError = u"A key of type %1 can't be created"_s.arg(pType);
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
    CommandLine tLine(u"init"_s, u"Creates the keys and the first root of a new repository."_s);
    tLine.addRepository();
    tLine.addOption(u"key-type"_s, u"ed25519, ecdsa, ecdsa-p384 or rsa"_s, u"TYPE"_s, u"ed25519"_s);
    tLine.addOption(u"root-days"_s, u"How long the root is valid, in days"_s, u"DAYS"_s, u"3650"_s);
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const std::optional<int> tDays = tLine.number("root-days", 1, 36500);
    const QString tType = tLine.value("key-type");
    if (!tuf::SigningKey::types().contains(tType)) {
        complain(u"Unknown key type \"%1\""_s.arg(tType));
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
    if (const Failure tWrite = tuf::writeFileAtomically(tFileSystem, tRootPath, tKeys.mRecord.mRoot, 0644)) {
        complain(tWrite.mText);
        return StatusFailed;
    }
    say(u"Keys:               %1 (keep it private, and keep a copy)"_s.arg(tLine.keys()));
    say(u"Root for clients:   %1"_s.arg(tRootPath));
    say(u"Next:               vkpublish add %1 FOLDER --name NAME --version VERSION"_s.arg(
        tLine.argument(0)));
    return StatusDone;
}

} // namespace tarn::vkpublish
