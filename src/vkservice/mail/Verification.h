#pragma once

#include <QtCore/QDateTime>
#include <QtCore/QString>
#include <QtCore/QStringList>

#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::mail {

// The codes that prove that the person who set an address also reads its mail. Only a hash of each code is
// stored.
class Verification
{
public:
    enum class Check
    {
        Right,
        Wrong,
        NoCode, // none was sent, or wrong attempts have used it up
        Expired,
        NotStored, // the attempt could not be counted, so it was rejected
    };

    enum class Issue
    {
        Issued,
        StillValid, // a code that was sent before is still valid
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

    // Creates a new code for an address and puts it into *pCode. pReplace: even if an existing code is still
    // valid.
    Issue issue(const QString& pAddress, const QDateTime& pNow, bool pReplace, QString* pCode);
    // True if a code was ever sent to this address, as far as the records go back.
    bool isKnown(const QString& pAddress);
    // A right code stays valid until forget(), so that it can be entered again if its use could not be
    // stored. A wrong one costs an attempt. Ignores case, blanks and dashes of pCode.
    Check check(const QString& pAddress, const QString& pCode, const QDateTime& pNow);
    // The address does not need a code any longer. The limits on the number of mails to it remain.
    bool forget(const QString& pAddress);
    // Removes the data of all other addresses once it does not limit anything any longer.
    bool retain(const QStringList& pAddresses, const QDateTime& pNow);

private:
    struct Entry
    {
        QByteArray mHash;    // empty: no valid code
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
