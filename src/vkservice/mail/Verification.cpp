#include "mail/Verification.h"

#include "mail/Address.h"
#include "mail/Random.h"
#include "sqlite/Database.h"

#include <openssl/crypto.h>

#include <QtCore/QCryptographicHash>
#include <QtCore/QSet>

namespace tarn::vkservice::mail {

using vkcore::Statement;

namespace {

constexpr qint64 sDay = 24 * 60 * 60;
// 32 characters that cannot be confused with each other, so five bits of a random byte select one without
// bias.
constexpr char sAlphabet[] = "23456789ABCDEFGHJKLMNPQRSTUVWXYZ";
static_assert(sizeof(sAlphabet) == 32 + 1);

QString newCode()
{
    QString tCode;
    for (const char tByte : randomBytes(12)) {
        if (tCode.size() == 4 || tCode.size() == 9) {
            tCode += u'-';
        }
        tCode += QLatin1Char(sAlphabet[static_cast<unsigned char>(tByte) % 32]);
    }
    return tCode;
}

QByteArray hashOf(const QString& pAddress, const QString& pCode)
{
    QString tCode = pCode.toUpper();
    tCode.remove(u'-').remove(u' ');
    return QCryptographicHash::hash((addressKey(pAddress) + u'\n' + tCode).toUtf8(),
                                    QCryptographicHash::Sha256);
}

bool equalInConstantTime(const QByteArray& pLeft, const QByteArray& pRight)
{
    return pLeft.size() == pRight.size() &&
           CRYPTO_memcmp(pLeft.constData(), pRight.constData(), static_cast<size_t>(pLeft.size())) == 0;
}

// A time in the future was stored before the clock was set back, and does not limit anything.
bool isWithin(qint64 pMoment, qint64 pSeconds, qint64 pNow)
{
    return pMoment <= pNow && pMoment > pNow - pSeconds;
}

} // namespace

bool Verification::ensureSchema()
{
    return mDatabase.execute(
        "CREATE TABLE IF NOT EXISTS mail_verification ("
        "address TEXT PRIMARY KEY, hash BLOB NOT NULL, expires INTEGER NOT NULL, "
        "attempts_left INTEGER NOT NULL, last_sent INTEGER NOT NULL, day_start INTEGER NOT NULL, "
        "sent_in_day INTEGER NOT NULL)");
}

std::optional<Verification::Entry> Verification::entry(const QString& pAddress)
{
    Statement tQuery(mDatabase, "SELECT hash, expires, attempts_left, last_sent, day_start, sent_in_day "
                                "FROM mail_verification WHERE address = ?1");
    if (!tQuery.bind(1, addressKey(pAddress)).step()) {
        return std::nullopt;
    }
    return Entry{.mHash = tQuery.bytes(0),
                 .mExpires = tQuery.integer(1),
                 .mAttemptsLeft = tQuery.integer(2),
                 .mLastSent = tQuery.integer(3),
                 .mDayStart = tQuery.integer(4),
                 .mSentInDay = tQuery.integer(5)};
}

bool Verification::store(const QString& pAddress, const Entry& pEntry)
{
    Statement tInsert(
        mDatabase,
        "INSERT OR REPLACE INTO mail_verification (address, hash, expires, attempts_left, last_sent, "
        "day_start, sent_in_day) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7)");
    // An empty QByteArray may have no data at all, which would be stored as NULL.
    return tInsert.bind(1, addressKey(pAddress))
        .bind(2, pEntry.mHash.isEmpty() ? QByteArray("") : pEntry.mHash)
        .bind(3, pEntry.mExpires)
        .bind(4, pEntry.mAttemptsLeft)
        .bind(5, pEntry.mLastSent)
        .bind(6, pEntry.mDayStart)
        .bind(7, pEntry.mSentInDay)
        .run();
}

int Verification::sentInLastHour(qint64 pNow)
{
    Statement tQuery(mDatabase,
                     "SELECT count(*) FROM mail_verification WHERE last_sent > ?1 AND last_sent <= ?2");
    return tQuery.bind(1, pNow - 60 * 60).bind(2, pNow).step() ? static_cast<int>(tQuery.integer(0))
                                                               : sMaxCodesPerHour;
}

bool Verification::isKnown(const QString& pAddress)
{
    return entry(pAddress).has_value();
}

Verification::Issue Verification::issue(const QString& pAddress, const QDateTime& pNow, bool pReplace,
                                        QString* pCode)
{
    const qint64 tNow = pNow.toSecsSinceEpoch();
    Entry tEntry = entry(pAddress).value_or(Entry());
    const bool tHolds = !tEntry.mHash.isEmpty() && tEntry.mExpires > tNow && tEntry.mAttemptsLeft > 0;
    if (tHolds && !pReplace) {
        return Issue::StillValid;
    }
    if (!isWithin(tEntry.mDayStart, sDay, tNow)) {
        tEntry.mDayStart = tNow;
        tEntry.mSentInDay = 0;
    }
    if (isWithin(tEntry.mLastSent, sMinSecondsBetweenCodes, tNow) || tEntry.mSentInDay >= sMaxCodesPerDay ||
        sentInLastHour(tNow) >= sMaxCodesPerHour) {
        return Issue::TooSoon;
    }
    *pCode = newCode();
    tEntry.mHash = hashOf(pAddress, *pCode);
    tEntry.mExpires = tNow + sValidHours * 60 * 60;
    tEntry.mAttemptsLeft = sMaxAttempts;
    tEntry.mLastSent = tNow;
    ++tEntry.mSentInDay;
    return store(pAddress, tEntry) ? Issue::Issued : Issue::NotStored;
}

Verification::Check Verification::check(const QString& pAddress, const QString& pCode, const QDateTime& pNow)
{
    std::optional<Entry> tEntry = entry(pAddress);
    if (!tEntry || tEntry->mHash.isEmpty() || tEntry->mAttemptsLeft <= 0) {
        return Check::NoCode;
    }
    if (tEntry->mExpires <= pNow.toSecsSinceEpoch()) {
        return Check::Expired;
    }
    // Counted before the comparison, so that a killed process does not restore the attempt.
    --tEntry->mAttemptsLeft;
    if (!store(pAddress, *tEntry)) {
        return Check::NotStored;
    }
    if (!equalInConstantTime(tEntry->mHash, hashOf(pAddress, pCode))) {
        return Check::Wrong;
    }
    tEntry->mAttemptsLeft = sMaxAttempts;
    store(pAddress, *tEntry);
    return Check::Right;
}

bool Verification::forget(const QString& pAddress)
{
    return Statement(mDatabase,
                     "UPDATE mail_verification SET hash = x'' WHERE address = ?1 AND length(hash) > 0")
        .bind(1, addressKey(pAddress))
        .run();
}

bool Verification::retain(const QStringList& pAddresses, const QDateTime& pNow)
{
    QSet<QString> tKeep;
    for (const QString& tAddress : pAddresses) {
        tKeep.insert(addressKey(tAddress));
    }
    QStringList tDrop;
    Statement tQuery(mDatabase,
                     "SELECT address FROM mail_verification WHERE day_start <= ?1 AND last_sent <= ?1");
    tQuery.bind(1, pNow.toSecsSinceEpoch() - sDay);
    while (tQuery.step()) {
        if (!tKeep.contains(tQuery.text(0))) {
            tDrop.append(tQuery.text(0));
        }
    }
    Statement tDelete(mDatabase, "DELETE FROM mail_verification WHERE address = ?1");
    bool tOk = tQuery.isOk();
    for (const QString& tAddress : tDrop) {
        tOk = tDelete.bind(1, tAddress).run() && tOk;
    }
    return tOk;
}

} // namespace tarn::vkservice::mail
