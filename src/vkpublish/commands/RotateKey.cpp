#include "commands/Commands.h"

#include "CommandLine.h"
#include "Roles.h"
#include "Rotation.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

namespace tarn::vkpublish {

int cmdRotateKey(const QStringList& pArguments)
{
    CommandLine tLine(
        QStringLiteral("rotate-key"),
        QStringLiteral("Gives a role a new key and publishes. Clients follow by themselves; the old key "
                       "alone is worth nothing from then on."));
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
    KeyFolder tKeys(os::realFileSystem(), tLine.keys());
    Publication tPublication(os::realFileSystem(), tLine.repository(), tKeys);
    QString tError;
    QDateTime tOldUntil;
    if (!tKeys.open(&tError) || !rotateKey(&tKeys, &tPublication, tRole, tType, tTimes,
                                           tNow.addDays(*tRootDays), &tOldUntil, &tError)) {
        complain(tError);
        return StatusFailed;
    }
    say(QStringLiteral("The role %1 has a new key: %2/%3. %4")
            .arg(tRole, tLine.keys(), tKeys.mRecord.mKeyFiles[tRole],
                 tRole == tuf::sRoot
                     ? QStringLiteral("The old key's file may be deleted.")
                     : QStringLiteral(
                           "Keep the old key's file until %1: it goes on signing beside the new one.")
                           .arg(tOldUntil.toUTC().toString(Qt::ISODate))));
    return StatusDone;
}

} // namespace tarn::vkpublish
