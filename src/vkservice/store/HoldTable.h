#pragma once

#include "internal/PackageValues.h"

#include <QtCore/QList>
#include <QtCore/QString>

#include <optional>

namespace tarn::vkcore {
class Database;
}

namespace tarn::vkservice::store {

using vkcore::protocol::HoldEntry;

// The packages that the administrator holds, at most one entry each. A hold that is over stays in the table:
// a clock that ran ahead must not end it for good.
class HoldTable
{
public:
    static constexpr qint64 sMostHolds = 10000; // the list has to fit into one answer

    enum class Outcome
    {
        Done,
        NoEntry, // the package is not held
        Full,
        Failed, // the database failed
    };

    explicit HoldTable(vkcore::Database& pDatabase) : mDatabase(pDatabase) {}

    // By name; no value if the database cannot be read.
    std::optional<QList<HoldEntry>> entries() const;
    // Replaces the entry of that name.
    Outcome set(const HoldEntry& pHold);
    Outcome remove(const QString& pName);

private:
    std::optional<qint64> count(const char* pWhere, const QString& pName) const;

    vkcore::Database& mDatabase;
};

} // namespace tarn::vkservice::store
