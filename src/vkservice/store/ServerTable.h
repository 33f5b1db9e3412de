#pragma once

#include "internal/Values.h"

#include <QtCore/QHash>
#include <QtCore/QList>
#include <QtCore/QString>

#include <functional>
#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::store {

using vkcore::protocol::ServerEntry;

// The list of update servers. At most one of them is the default server; the "default server" of the settings
// is this entry. Each setter is one transaction and changes the revision, so that a client with an outdated
// position cannot overwrite the change of another client.
class ServerTable
{
public:
    enum class Outcome
    {
        Done,
        Stale,   // the revision is outdated
        NoEntry, // no entry at this position
        Invalid, // the entry breaks a rule, which reason() names
        Failed,  // the database failed; reason() has the details
    };

    explicit ServerTable(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

    // In the order of the list; no value if the database cannot be read. Contains the passwords; an entry
    // without one has none set.
    std::optional<QList<ServerEntry>> entries();
    // The default entry; an entry without an address if there is none.
    std::optional<ServerEntry> defaultEntry();
    std::optional<qint64> revision();

    Outcome add(const ServerEntry& pServer);
    // Keeps the stored password if pServer has none. Without pRevision: applies to the current list.
    Outcome change(int pIndex, const ServerEntry& pServer, std::optional<qint64> pRevision);
    Outcome remove(int pIndex, std::optional<qint64> pRevision);
    // Changes the default entry, or creates one that is enabled.
    Outcome setDefault(const QString& pUri, const QString& pUser, const QString& pPassword);
    // Sets the first default server of a machine. Does nothing if the list was ever changed.
    Outcome provide(const QString& pUri);

    const QString& reason() const { return mReason; }
    // The database has been replaced by another one.
    void forget();

private:
    struct Row
    {
        qint64 mId = 0;
        ServerEntry mEntry;
    };

    std::optional<QList<Row>> rows(const char* pTail, std::optional<qint64> pValue = {});
    Outcome inTransaction(std::optional<qint64> pRevision, const std::function<Outcome()>& pBody);
    std::optional<qint64> idAt(int pIndex);
    Outcome check(const ServerEntry& pEntry);
    bool insert(const ServerEntry& pEntry);
    bool update(qint64 pId, const ServerEntry& pEntry);
    bool clearDefault();
    bool moveRevision();
    std::optional<qsizetype> listBytes();
    Outcome failed();

    vkcore::Database& mDatabase;
    QString mReason;
    // Passwords that must not be written to disk: they are lost when this process ends.
    QHash<qint64, QString> mUnsavedPasswords;
    std::optional<qsizetype> mListBytes; // bytes of the list in an answer, once it was counted
};

} // namespace tarn::vkservice::store
