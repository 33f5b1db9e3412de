#include "commands/Commands.h"

#include "CommandLine.h"
#include "Publication.h"
#include "Roles.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

namespace tarn::vkpublish {

namespace {

bool readAllKeys(KeyFolder* pFolder, QMap<QString, tuf::SigningKey>* pTo, QString* pError)
{
    for (const QString& tRole : roleNames()) {
        std::optional<tuf::SigningKey> tKey;
        if (!pFolder->readKey(tRole, &tKey, pError)) {
            return false;
        }
        pTo->insert(tRole, *tKey);
    }
    return true;
}

// Puts a new key and the root that names it into the record.
bool rotate(KeyFolder* pFolder, const QString& pRole, const QString& pType, const QDateTime& pRootExpires,
            QString* pError)
{
    QMap<QString, tuf::SigningKey> tKeys;
    if (!readAllKeys(pFolder, &tKeys, pError)) {
        return false;
    }
    const tuf::SigningKey tOldRootKey = tKeys.find(tuf::sRoot).value();
    const std::optional<tuf::SigningKey> tNew = tuf::SigningKey::generate(pType);
    if (!tNew) {
        *pError = QStringLiteral("A key of type %1 can't be made").arg(pType);
        return false;
    }
    if (!pFolder->addKey(pRole, *tNew, pError)) {
        return false;
    }
    tKeys.insert(pRole, *tNew);
    Record& tRecord = pFolder->mRecord;
    const qint64 tVersion = ++tRecord.mVersions[tuf::sRoot];
    tRecord.mRoot = makeRoot(tVersion, pRootExpires, tKeys, tOldRootKey);
    tRecord.mPublishedTargetsFile = PublishedFile();
    tRecord.mPublishedSnapshot = PublishedFile();
    return pFolder->save(pError);
}

} // namespace

int cmdRotateKey(const QStringList& pArguments)
{
    CommandLine tLine(
        QStringLiteral("rotate-key"),
        QStringLiteral("Gives a role a new key and publishes. Clients follow by themselves; the old key "
                       "is worth nothing from then on."));
    tLine.addRepository();
    tLine.addArgument(QStringLiteral("ROLE"), QStringLiteral("root, targets, snapshot or timestamp"));
    tLine.addOption(QStringLiteral("key-type"), QStringLiteral("ed25519, ecdsa, ecdsa-p384 or rsa"),
                    QStringLiteral("TYPE"), QStringLiteral("ed25519"));
    tLine.addOption(QStringLiteral("root-days"), QStringLiteral("How long the new root holds, in days"),
                    QStringLiteral("DAYS"), QStringLiteral("3650"));
    tLine.addOption(QStringLiteral("expires-days"),
                    QStringLiteral("How long timestamp and snapshot hold, in days"), QStringLiteral("DAYS"),
                    QStringLiteral("14"));
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const QString tRole = tLine.argument(1);
    const QString tType = tLine.value("key-type");
    const std::optional<int> tRootDays = tLine.number("root-days", 1, 36500);
    const std::optional<int> tDays = tLine.number("expires-days", 1, 3650);
    if (!roleNames().contains(tRole) || !tuf::SigningKey::types().contains(tType)) {
        complain(QStringLiteral("There is no role \"%1\" or no key type \"%2\"").arg(tRole, tType));
        return StatusUsage;
    }
    if (!tRootDays || !tDays) {
        return StatusUsage;
    }

    const QDateTime tNow = QDateTime::currentDateTimeUtc();
    const PublicationTimes tTimes{tNow, tNow.addDays(*tDays), tNow.addDays(365)};
    KeyFolder tKeys(vkservice::os::realFileSystem(), tLine.keys());
    Publication tPublication(vkservice::os::realFileSystem(), tLine.repository(), tKeys);
    QString tError;
    // The first run brings out a root that an interrupted rotation left behind: no version may be missing.
    if (!tKeys.open(&tError) || !tPublication.run(tTimes, &tError) ||
        !rotate(&tKeys, tRole, tType, tNow.addDays(*tRootDays), &tError) ||
        !tPublication.run(tTimes, &tError)) {
        complain(tError);
        return StatusFailed;
    }
    say(QStringLiteral("The role %1 has a new key: %2/%3. The old key's file may be deleted.")
            .arg(tRole, tLine.keys(), tKeys.mRecord.mKeyFiles[tRole]));
    return StatusDone;
}

} // namespace tarn::vkpublish
