#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::mail {

// The codes that prove that whoever set an address also reads its mail. Only a hash of each code is kept.
class Verification
{
public:
    enum class Check
    {
        Right,
        Wrong,
        NoCode, // none was sent, or it has been used up by wrong attempts
        Expired,
        NotStored, // the attempt could not be counted, so it was not made
    };

    enum class Issue
    {
        Issued,
        StillValid, // one that was sent before still holds
        TooSoon,    // a limit on mails to this address, or to all, is reached
        NotStored,
    };

    static constexpr int sValidHours = 72;
    static constexpr int sMaxAttempts = 5; // wrong ones for one code
    static constexpr int sMinSecondsBetweenCodes = 15 * 60;
    static constexpr int sMaxCodesPerDay = 5;   // for one address
    static constexpr int sMaxCodesPerHour = 30; // for all addresses

    explicit Verification(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

    bool ensureSchema();

    // Makes a new code for an address and puts it into *pCode. pReplace: also where one holds still.
    Issue issue(const QString& pAddress, const QDateTime& pNow, bool pReplace, QString* pCode);
    // Has a code ever been sent to this address, as far as is remembered?
    bool isKnown(const QString& pAddress);
    // A right code stays valid until forget(), so that it can be entered again if its use could not be
    // stored. A wrong one costs an attempt. Case, blanks and dashes of pCode don't count.
    Check check(const QString& pAddress, const QString& pCode, const QDateTime& pNow);
    // The address needs no code any more. What limits the number of mails to it stays.
    bool forget(const QString& pAddress);
    // Drops what is known of addresses other than these, once it limits nothing any more.
    bool retain(const QStringList& pAddresses, const QDateTime& pNow);

private:
    struct Entry
    {
        QByteArray mHash;    // empty: no code holds
        qint64 mExpires = 0; // seconds since the epoch, as are the other times
        qint64 mAttemptsLeft = 0;
        qint64 mLastSent = 0;
        qint64 mDayStart = 0; // of the day in which mSentInDay counts
        qint64 mSentInDay = 0;
    };

    std::optional<Entry> entry(const QString& pAddress);
    bool store(const QString& pAddress, const Entry& pEntry);
    int sentInLastHour(qint64 pNow);

    vkcore::Database& mDatabase;
};

} // namespace tarn::vkservice::mail
