#include "store/HoldTable.h"

#include "sqlite/Database.h"

#include <QtCore/QDateTime>

using namespace Qt::StringLiterals;

namespace tarn::vkservice::store {

using vkcore::Statement;

std::optional<QList<HoldEntry>> HoldTable::entries() const
{
    Statement tQuery(mDatabase, "SELECT name, versions, until FROM holds ORDER BY name");
    QList<HoldEntry> tEntries;
    while (tQuery.step()) {
        const QDateTime tUntil = QDateTime::fromString(tQuery.text(2), Qt::ISODate);
        tEntries.append({tQuery.text(0), tQuery.text(1), tUntil.toLocalTime()});
    }
    return tQuery.isOk() ? std::optional(tEntries) : std::nullopt;
}

std::optional<qint64> HoldTable::count(const char* pWhere, const QString& pName) const
{
    Statement tQuery(mDatabase, QByteArray("SELECT count(*) FROM holds WHERE ").append(pWhere).constData());
    tQuery.bind(1, pName);
    const qint64 tCount = tQuery.step() ? tQuery.integer(0) : 0;
    return tQuery.isOk() ? std::optional(tCount) : std::nullopt;
}

HoldTable::Outcome HoldTable::set(const HoldEntry& pHold)
{
    const auto tOthers = count("name <> ?", pHold.mName);
    if (!tOthers) {
        return Outcome::Failed;
    }
    if (*tOthers >= sMostHolds) {
        return Outcome::Full;
    }
    const QString tUntil = pHold.mUntil.isValid() ? pHold.mUntil.toUTC().toString(Qt::ISODate) : QString();
    Statement tInsert(mDatabase, "INSERT OR REPLACE INTO holds (name, versions, until) VALUES (?, ?, ?)");
    return tInsert.bind(1, pHold.mName).bind(2, pHold.mVersions).bind(3, tUntil).run() ? Outcome::Done
                                                                                       : Outcome::Failed;
}

HoldTable::Outcome HoldTable::remove(const QString& pName)
{
    const auto tHeld = count("name = ?", pName);
    if (tHeld && *tHeld == 0) {
        return Outcome::NoEntry;
    }
    Statement tDelete(mDatabase, "DELETE FROM holds WHERE name = ?");
    return tHeld && tDelete.bind(1, pName).run() ? Outcome::Done : Outcome::Failed;
}

} // namespace tarn::vkservice::store
