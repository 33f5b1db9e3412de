#include "publication/Refresh.h"

#include "CommandLine.h"
#include "commands/Commands.h"
#include "commands/Json.h"
#include "keys/SigningTime.h"
#include "publication/Expiry.h"

#include "os/FileSystem.h"
#include "tuf/Metadata.h"

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

QString text(const Refresh& pRefresh)
{
    return u"Refreshed the timestamp%1, valid until %2"_s.arg(
        pRefresh.hasNewSnapshot() ? u" and the snapshot"_s : QString(),
        firstExpiry(pRefresh.state()).toUTC().toString(Qt::ISODate));
}

// Of what this command can't renew, and what expires before the timestamp.
QStringList warnings(RepositoryState pState, const QDateTime& pNow, int pDays)
{
    pState.mExpires.remove(tuf::sTimestamp);
    pState.mExpires.remove(tuf::sSnapshot);
    return expiryWarnings(pState, pNow, pDays, {});
}

void print(const Refresh& pRefresh, const QStringList& pWarnings, bool pIsJson)
{
    for (const QString& tWarning : pWarnings) {
        complain(u"Warning: %1"_s.arg(tWarning));
    }
    if (!pIsJson) {
        say(text(pRefresh));
        return;
    }
    QJsonObject tObject{{u"newSnapshot"_s, pRefresh.hasNewSnapshot()},
                        {u"warnings"_s, QJsonArray::fromStringList(pWarnings)}};
    addValidity(pRefresh.state(), QDateTime::currentDateTimeUtc(), &tObject);
    sayJson(tObject);
}

} // namespace

int cmdRefresh(const QStringList& pArguments)
{
    CommandLine tLine(u"refresh"_s,
                      u"Renews the timestamp, and the snapshot if less than half of its life is left. Needs "
                      "only the keys of these two roles, and no packages: run it every night."_s);
    tLine.addRepository();
    tLine.addNoWait();
    tLine.addOption(u"expires-days"_s, u"How long timestamp and snapshot are valid, in days"_s, u"DAYS"_s,
                    u"14"_s);
    tLine.addTrustClock();
    tLine.addJson();
    if (const std::optional<int> tStatus = tLine.parse(pArguments)) {
        return *tStatus;
    }
    const std::optional<int> tDays = tLine.number("expires-days", 1, 3650);
    if (!tDays) {
        return StatusUsage;
    }
    const QDateTime tNow = signingTime();
    KeyFolder tKeys(os::realFileSystem(), tLine.keys(), tLine.patience());
    Refresh tRefresh(os::realFileSystem(), tLine.repository(), tKeys);
    Failure tFailure = tKeys.open();
    if (tLine.isSet("trust-clock")) {
        tKeys.mRecord.mSignedAt = QDateTime();
    }
    if (!tFailure) {
        tFailure = tRefresh.run({.mNow = tNow, .mExpires = tNow.addDays(*tDays), .mTargetsExpires = {}});
    }
    if (tFailure) {
        complain(tFailure.mText);
        return StatusFailed;
    }
    print(tRefresh, warnings(tRefresh.state(), tNow, *tDays), tLine.isSet("json"));
    return StatusDone;
}

} // namespace tarn::vkpublish
