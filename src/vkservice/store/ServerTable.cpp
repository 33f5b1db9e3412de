#include "store/ServerTable.h"

#include "internal/PlainText.h"
#include "internal/Protocol.h"
#include "sqlite/Database.h"

#include <vkcore/Server.h>

#include <QtCore/QDateTime>
#include <QtCore/QUrl>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::store {

using namespace vkcore;

namespace {

// The complete list must fit into one answer, which is a line of 8 MiB.
constexpr qsizetype sMaxListBytes = 7 * 1024 * 1024;

QString suggestedName(const QString& pUri)
{
    const GRef<Server> tServer(new Server(nullptr));
    tServer->setUri(pUri);
    return tServer->getSuggestedName();
}

// Answers never contain passwords.
qsizetype answerBytes(ServerEntry pEntry)
{
    pEntry.mPassword.reset();
    return protocol::toLine(protocol::toJson(pEntry)).size();
}

bool isUsableAddress(const QString& pUri)
{
    const QUrl tUrl = QUrl::fromEncoded(pUri.toUtf8(), QUrl::TolerantMode);
    if (tUrl.isValid() && tUrl.scheme() == "https"_L1) {
        return !tUrl.host().isEmpty();
    }
    return tUrl.isValid() && tUrl.scheme() == "file"_L1 && !tUrl.path().isEmpty();
}

} // namespace

std::optional<QList<ServerTable::Row>> ServerTable::rows(const char* pTail, std::optional<qint64> pValue)
{
    const QByteArray tSql =
        QByteArray("SELECT id, name, uri, user, password, enabled, isDefault, savePassword FROM servers ") +
        pTail;
    Statement tQuery(mDatabase, tSql.constData());
    if (pValue) {
        tQuery.bind(1, *pValue);
    }
    QList<Row> tRows;
    while (tQuery.step()) {
        const qint64 tId = tQuery.integer(0);
        const QString tPassword = mUnsavedPasswords.value(tId, tQuery.text(4));
        ServerEntry tEntry{.mName = tQuery.text(1),
                           .mUri = tQuery.text(2),
                           .mUser = tQuery.text(3),
                           .mPassword = {},
                           .mEnabled = tQuery.integer(5) != 0,
                           .mDefault = tQuery.integer(6) != 0,
                           .mSavePassword = tQuery.integer(7) != 0};
        if (!tPassword.isNull()) {
            tEntry.mPassword = tPassword;
        }
        tRows.append({tId, tEntry});
    }
    if (!tQuery.isOk()) {
        mReason = mDatabase.errorText();
        return std::nullopt;
    }
    return tRows;
}

std::optional<QList<ServerEntry>> ServerTable::entries()
{
    const auto tRows = rows("ORDER BY id");
    if (!tRows) {
        return std::nullopt;
    }
    QList<ServerEntry> tEntries;
    tEntries.reserve(tRows->size());
    for (const Row& tRow : *tRows) {
        tEntries.append(tRow.mEntry);
    }
    return tEntries;
}

std::optional<ServerEntry> ServerTable::defaultEntry()
{
    const auto tRows = rows("WHERE isDefault = 1");
    if (!tRows) {
        return std::nullopt;
    }
    return tRows->isEmpty() ? ServerEntry{} : tRows->first().mEntry;
}

std::optional<qint64> ServerTable::revision()
{
    Statement tQuery(mDatabase, "SELECT value FROM settings WHERE name = 'servers.revision'");
    const qint64 tRevision = tQuery.step() ? tQuery.text(0).toLongLong() : 0;
    return tQuery.isOk() ? std::optional(tRevision) : std::nullopt;
}

// The first revision of a list is the time: an emptied store must not reach a revision that a client still
// has from the old one.
bool ServerTable::moveRevision()
{
    const auto tOld = revision();
    if (!tOld) {
        return false;
    }
    const qint64 tNew = *tOld == 0 ? QDateTime::currentSecsSinceEpoch() : *tOld + 1;
    Statement tSet(mDatabase, "INSERT OR REPLACE INTO settings (name, value) VALUES ('servers.revision', ?)");
    return tSet.bind(1, QString::number(tNew)).run();
}

ServerTable::Outcome ServerTable::failed()
{
    mReason = u"The server list can't be stored: %1."_s.arg(mDatabase.errorText());
    return Outcome::Failed;
}

ServerTable::Outcome ServerTable::inTransaction(std::optional<qint64> pRevision,
                                                const std::function<Outcome()>& pBody)
{
    Outcome tOutcome = Outcome::Failed;
    const auto tUnsavedBefore = mUnsavedPasswords;
    const bool tCommitted = mDatabase.transaction([&] {
        if (pRevision) {
            const auto tCurrent = revision();
            if (!tCurrent || *tCurrent != *pRevision) {
                tOutcome = tCurrent ? Outcome::Stale : failed();
                return false;
            }
        }
        tOutcome = pBody();
        if (tOutcome == Outcome::Done && !moveRevision()) {
            tOutcome = failed();
        }
        return tOutcome == Outcome::Done;
    });
    mListBytes.reset();
    if (!tCommitted) {
        mUnsavedPasswords = tUnsavedBefore;
        return tOutcome == Outcome::Done || tOutcome == Outcome::Failed ? failed() : tOutcome;
    }
    return tOutcome;
}

ServerTable::Outcome ServerTable::check(const ServerEntry& pEntry)
{
    if (!isUsableAddress(pEntry.mUri)) {
        mReason = u"A server needs an address of the form https://HOST/... or file:///..."_s;
        return Outcome::Invalid;
    }
    const auto tBytes = listBytes();
    if (!tBytes) {
        return failed();
    }
    if (*tBytes + answerBytes(pEntry) > sMaxListBytes) {
        mReason = u"The server list is full."_s;
        return Outcome::Invalid;
    }
    return Outcome::Done;
}

std::optional<qsizetype> ServerTable::listBytes()
{
    if (!mListBytes) {
        const auto tEntries = entries();
        if (!tEntries) {
            return std::nullopt;
        }
        qsizetype tSum = 0;
        for (const ServerEntry& tEntry : *tEntries) {
            tSum += answerBytes(tEntry);
        }
        mListBytes = tSum;
    }
    return mListBytes;
}

std::optional<qint64> ServerTable::idAt(int pIndex)
{
    if (pIndex < 0) {
        return std::nullopt;
    }
    Statement tQuery(mDatabase, "SELECT id FROM servers ORDER BY id LIMIT 1 OFFSET ?");
    tQuery.bind(1, qint64(pIndex));
    return tQuery.step() ? std::optional(tQuery.integer(0)) : std::nullopt;
}

bool ServerTable::clearDefault()
{
    return mDatabase.execute("UPDATE servers SET isDefault = 0 WHERE isDefault = 1");
}

bool ServerTable::insert(const ServerEntry& pEntry)
{
    Statement tInsert(mDatabase,
                      "INSERT INTO servers (id, name, uri, user, password, enabled, isDefault, savePassword) "
                      "VALUES (NULL, ?, ?, ?, NULL, ?, ?, ?) RETURNING id");
    tInsert.bind(1, present(pEntry.mName)).bind(2, present(pEntry.mUri)).bind(3, present(pEntry.mUser));
    tInsert.bind(4, qint64(pEntry.mEnabled))
        .bind(5, qint64(pEntry.mDefault))
        .bind(6, qint64(pEntry.mSavePassword));
    if (!tInsert.step()) {
        return false;
    }
    const qint64 tId = tInsert.integer(0);
    while (tInsert.step()) {
    }
    return tInsert.isOk() && update(tId, pEntry);
}

bool ServerTable::update(qint64 pId, const ServerEntry& pEntry)
{
    Statement tUpdate(mDatabase, "UPDATE servers SET name = ?, uri = ?, user = ?, password = ?, enabled = ?, "
                                 "isDefault = ?, savePassword = ? WHERE id = ?");
    tUpdate.bind(1, present(pEntry.mName)).bind(2, present(pEntry.mUri)).bind(3, present(pEntry.mUser));
    const QString tPassword = pEntry.mPassword.value_or(QString());
    tUpdate.bind(4, pEntry.mSavePassword ? tPassword : QString());
    tUpdate.bind(5, qint64(pEntry.mEnabled))
        .bind(6, qint64(pEntry.mDefault))
        .bind(7, qint64(pEntry.mSavePassword));
    tUpdate.bind(8, pId);
    if (!tUpdate.run()) {
        return false;
    }
    if (pEntry.mSavePassword || tPassword.isNull()) {
        mUnsavedPasswords.remove(pId);
    } else {
        mUnsavedPasswords.insert(pId, tPassword);
    }
    return true;
}

ServerTable::Outcome ServerTable::add(const ServerEntry& pServer)
{
    const auto tBytesBefore = listBytes();
    const Outcome tOutcome = inTransaction({}, [&] {
        const Outcome tChecked = check(pServer);
        if (tChecked != Outcome::Done) {
            return tChecked;
        }
        return (!pServer.mDefault || clearDefault()) && insert(pServer) ? Outcome::Done : failed();
    });
    // A running total, so that adding an entry to a long list does not count the list again.
    if (tOutcome == Outcome::Done && tBytesBefore) {
        mListBytes = *tBytesBefore + answerBytes(pServer);
    }
    return tOutcome;
}

ServerTable::Outcome ServerTable::change(int pIndex, const ServerEntry& pServer,
                                         std::optional<qint64> pRevision)
{
    return inTransaction(pRevision, [&] {
        const auto tId = idAt(pIndex);
        if (!tId) {
            return Outcome::NoEntry;
        }
        ServerEntry tEntry = pServer;
        const Outcome tChecked = check(tEntry);
        if (tChecked != Outcome::Done) {
            return tChecked;
        }
        if (!pServer.mPassword) {
            const auto tStored = rows("WHERE id = ?", *tId);
            if (!tStored || tStored->isEmpty()) {
                return failed();
            }
            tEntry.mPassword = tStored->first().mEntry.mPassword;
        }
        return (!tEntry.mDefault || clearDefault()) && update(*tId, tEntry) ? Outcome::Done : failed();
    });
}

ServerTable::Outcome ServerTable::remove(int pIndex, std::optional<qint64> pRevision)
{
    return inTransaction(pRevision, [&] {
        const auto tId = idAt(pIndex);
        if (!tId) {
            return Outcome::NoEntry;
        }
        Statement tDelete(mDatabase, "DELETE FROM servers WHERE id = ?");
        if (!tDelete.bind(1, *tId).run()) {
            return failed();
        }
        mUnsavedPasswords.remove(*tId);
        return Outcome::Done;
    });
}

ServerTable::Outcome ServerTable::setDefault(const QString& pUri, const QString& pUser,
                                             const QString& pPassword)
{
    return inTransaction({}, [&] {
        const auto tRows = rows("WHERE isDefault = 1");
        if (!tRows) {
            return failed();
        }
        ServerEntry tEntry = tRows->isEmpty() ? ServerEntry{} : tRows->first().mEntry;
        tEntry.mUri = pUri;
        tEntry.mUser = pUser;
        tEntry.mSavePassword = tEntry.mSavePassword || pPassword != tEntry.mPassword.value_or(QString());
        tEntry.mPassword = pPassword;
        tEntry.mDefault = true;
        if (tRows->isEmpty()) {
            tEntry.mName = suggestedName(pUri);
        }
        const Outcome tChecked = check(tEntry);
        if (tChecked != Outcome::Done) {
            return tChecked;
        }
        const bool tStored = tRows->isEmpty() ? insert(tEntry) : update(tRows->first().mId, tEntry);
        return tStored ? Outcome::Done : failed();
    });
}

ServerTable::Outcome ServerTable::provide(const QString& pUri)
{
    const auto tRevision = revision();
    if (!tRevision) {
        return failed();
    }
    return *tRevision == 0 ? setDefault(pUri, QString(), QString()) : Outcome::Done;
}

void ServerTable::forget()
{
    mUnsavedPasswords.clear();
    mListBytes.reset();
}

} // namespace tarn::vkservice::store
