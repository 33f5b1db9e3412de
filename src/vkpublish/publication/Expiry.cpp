#include "publication/Expiry.h"

#include "keys/Roles.h"

#include "tuf/Metadata.h"

#include <algorithm>

using namespace Qt::StringLiterals;

namespace tarn::vkpublish {

namespace {

constexpr qint64 sSecondsPerDay = 24 * 60 * 60;
// Time for people to meet.
constexpr int sRootDays = 90;
constexpr int sTargetsDays = 30;

int noticeOf(const QString& pRole, int pDays)
{
    return pRole == tuf::sRoot      ? std::max(pDays, sRootDays)
           : pRole == tuf::sTargets ? std::max(pDays, sTargetsDays)
                                    : pDays;
}

QString remedyFor(const QString& pRole)
{
    return pRole == tuf::sRoot      ? u"renew it with \"vkpublish rotate-key DIR root\""_s
           : pRole == tuf::sTargets ? u"renew it with \"vkpublish publish\""_s
                                    : u"renew it with \"vkpublish refresh\""_s;
}

QString when(qint64 pDays)
{
    return pDays < 0    ? u"has expired"_s
           : pDays == 0 ? u"expires within a day"_s
           : pDays == 1 ? u"expires in 1 day"_s
                        : u"expires in %1 days"_s.arg(pDays);
}

} // namespace

QDateTime firstExpiry(const RepositoryState& pState)
{
    QDateTime tFirst;
    for (const QDateTime& tExpires : pState.mExpires) {
        tFirst = tFirst.isValid() ? std::min(tFirst, tExpires) : tExpires;
    }
    return tFirst;
}

qint64 daysLeft(const QDateTime& pNow, const QDateTime& pExpires)
{
    const qint64 tSeconds = pNow.secsTo(pExpires);
    return tSeconds > 0 ? tSeconds / sSecondsPerDay : tSeconds / sSecondsPerDay - 1;
}

QStringList expiryWarnings(const RepositoryState& pState, const QDateTime& pNow, int pDays,
                           const QString& pPlace)
{
    QStringList tWarnings;
    for (const QString& tRole : roleNames()) {
        const QDateTime tExpires = pState.mExpires.value(tRole);
        if (!tExpires.isValid() || pNow.secsTo(tExpires) > noticeOf(tRole, pDays) * sSecondsPerDay) {
            continue;
        }
        const QString tName = tRole == tuf::sTargets ? u"list of packages"_s : tRole;
        const QString tWhose = pPlace.isEmpty() ? u"The "_s + tName : u"%1: the %2"_s.arg(pPlace, tName);
        tWarnings.append(u"%1 %2, on %3: %4"_s.arg(tWhose, when(daysLeft(pNow, tExpires)),
                                                   tExpires.toUTC().toString(Qt::ISODate), remedyFor(tRole)));
    }
    return tWarnings;
}

} // namespace tarn::vkpublish
